// A file that is slow, stuck or full: the tracing thread is held for a moment at most, and what is missing is
// counted.
#include <gmock/gmock.h>

#include <atomic>

#include "support/Gate.h"
#include "support/ImportPatch.h"
#include "support/SideThread.h"
#include "system/tracelib/TracedFile.h"

using testing::Contains;
using testing::ElementsAre;
using testing::SizeIs;

namespace
{

// The disk under the library.
class CScriptedDisk
{
public:
    explicit CScriptedDisk(HMODULE hModule) : m_imports(hModule)
    {
        s_bFull = false;
        s_pGate = nullptr;
        s_pfnWriteFile = m_imports.Add("WriteFile", ScriptedWrite);
    }

    void Forget() { m_imports.Forget(); }

    static inline std::atomic<bool> s_bFull = false;
    static inline std::atomic<CGate*> s_pGate = nullptr;  // closed: no write ends
    static inline std::atomic<int> s_writes = 0;

private:
    static BOOL WINAPI ScriptedWrite(HANDLE hFile, LPCVOID pBytes, DWORD cb, LPDWORD pcb, LPOVERLAPPED pPlace)
    {
        ++s_writes;
        if (CGate* const pGate = s_pGate)
        {
            pGate->Wait();
        }
        if (s_bFull)
        {
            *pcb = 0;
            SetLastError(ERROR_DISK_FULL);
            return FALSE;
        }
        return s_pfnWriteFile(hFile, pBytes, cb, pcb, pPlace);
    }

    static inline decltype(&WriteFile) s_pfnWriteFile = nullptr;
    CImportPatches m_imports;
};

constexpr ULONGLONG kMomentMs = 1500;  // one wait of a quarter of a second, on a busy machine

TEST(SlowFileTest, HoldsTheHostForOneMomentOnly)
{
    CTracedFile file;
    CLoadedTraceLibrary library;
    CScriptedDisk disk(library.Module());
    CGate gate;
    CScriptedDisk::s_pGate = &gate;
    const ULONGLONG begin = GetTickCount64();
    for (int record = 0; record < 200; ++record)
    {
        library.Write(std::to_string(record));
    }
    const ULONGLONG took = GetTickCount64() - begin;
    EXPECT_GE(took, 200u) << "nobody has waited for the first record";
    EXPECT_LT(took, kMomentMs);
    gate.Open();
    library.Free();
    disk.Forget();
    const std::vector<std::string> texts = file.Texts();
    ASSERT_THAT(texts, SizeIs(200)) << "what waits in memory is written when the file goes on";
    EXPECT_EQ(texts.front(), "0,");
    EXPECT_EQ(texts.back(), "199,");
}

TEST(SlowFileTest, CountsWhatFindsNoRoomInMemory)
{
    CTracedFile file;
    CLoadedTraceLibrary library;
    CScriptedDisk disk(library.Module());
    CGate gate;
    CScriptedDisk::s_pGate = &gate;
    constexpr int kRecords = 30;
    for (int record = 0; record < kRecords; ++record)
    {
        library.Write(std::string(500000, 'x'));
    }
    gate.Open();
    library.Free();
    disk.Forget();
    const size_t written = file.Texts().size();
    EXPECT_GE(written, 5u);
    EXPECT_LE(written, 10u) << "more than four million bytes have waited";
    EXPECT_THAT(file.Notes(), Contains(std::to_string(kRecords - written) + " records are missing here"));
}

TEST(SlowFileTest, WaitsAgainOnceTheFileIsQuick)
{
    CTracedFile file;
    CLoadedTraceLibrary library;
    CScriptedDisk disk(library.Module());
    {
        CGate gate;
        CScriptedDisk::s_pGate = &gate;
        library.Write("slow");
        gate.Open();
        CScriptedDisk::s_pGate = nullptr;
        // The end of the slow write is not this thread's to see.
        while (file.Texts().empty())
        {
            Sleep(1);
        }
    }
    // Within a few records somebody waits again, so that each is in the file when its call returns.
    int waited = 0;
    for (int record = 0; record < 20; ++record)
    {
        const std::string text = std::to_string(record);
        library.Write(text);
        waited += file.Texts().back() == text + ",";
    }
    EXPECT_GE(waited, 10);
    library.Free();
    disk.Forget();
}

TEST(SlowFileTest, FullDiskLosesRecordsAndSaysHowMany)
{
    CTracedFile file;
    CLoadedTraceLibrary library;
    CScriptedDisk disk(library.Module());
    library.Write("before");
    CScriptedDisk::s_bFull = true;
    const ULONGLONG begin = GetTickCount64();
    for (int record = 0; record < 100; ++record)
    {
        library.Write("lost");
    }
    EXPECT_LT(GetTickCount64() - begin, 5000u);
    CScriptedDisk::s_bFull = false;
    library.Write("after");
    library.Free();
    disk.Forget();
    EXPECT_THAT(file.Texts(), ElementsAre("before,", "after,"));
    EXPECT_THAT(file.Notes(), Contains("100 records are missing here"));
}

// A pipe that nobody reads is as stuck as a file can be.
class StuckPipeTest : public testing::Test
{
protected:
    StuckPipeTest()
        : m_hPipe(
              CreateNamedPipeW(Name().c_str(), PIPE_ACCESS_INBOUND, PIPE_TYPE_BYTE, 1, 512, 512, 0, nullptr))
    {
    }
    ~StuckPipeTest() override { CloseHandle(m_hPipe); }

    static std::wstring Name()
    {
        return L"\\\\.\\pipe\\kvhttp-trace-" + std::to_wstring(GetCurrentProcessId());
    }

    const HANDLE m_hPipe;
    const CVariable m_variable{L"QNZTRACE_FILE", Name()};
};

TEST_F(StuckPipeTest, HoldsNeitherTheHostNorItsUnload)
{
    CLoadedTraceLibrary library;
    const ULONGLONG begin = GetTickCount64();
    for (int record = 0; record < 200; ++record)
    {
        library.Write(std::string(100, 'x'));
    }
    EXPECT_LT(GetTickCount64() - begin, kMomentMs);
    EXPECT_TRUE(library.Free());
    EXPECT_LT(GetTickCount64() - begin, kMomentMs + 4000u);
}

}  // namespace
