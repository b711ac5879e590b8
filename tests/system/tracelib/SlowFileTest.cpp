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
        s_dwDelayMs = 0;
        s_pfnWriteFile = m_imports.Add("WriteFile", ScriptedWrite);
    }

    void Forget() { m_imports.Forget(); }

    static inline std::atomic<bool> s_bFull = false;
    static inline std::atomic<CGate*> s_pGate = nullptr;  // closed: no write ends
    static inline std::atomic<DWORD> s_dwDelayMs = 0;

private:
    static BOOL WINAPI ScriptedWrite(HANDLE hFile, LPCVOID pBytes, DWORD cb, LPDWORD pcb, LPOVERLAPPED pPlace)
    {
        Sleep(s_dwDelayMs);
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
    CGate first;
    CScriptedDisk::s_pGate = &first;
    library.Write("slow");
    CScriptedDisk::s_pGate = nullptr;
    first.Open();
    for (size_t records = 1; records < 5; ++records)
    {
        while (file.Texts().size() < records)
        {
            Sleep(1);  // the end of a write that nobody waits for is not this thread's to see
        }
        library.Write("quick");
    }
    CGate second;
    CScriptedDisk::s_pGate = &second;
    const ULONGLONG begin = GetTickCount64();
    library.Write("slow again");
    EXPECT_GE(GetTickCount64() - begin, 200u) << "nobody has waited";
    second.Open();
    library.Free();
    disk.Forget();
    EXPECT_THAT(file.Texts(), SizeIs(6));
}

TEST(SlowFileTest, DoesNotWaitForEachRecordOfASlowFile)
{
    CTracedFile file;
    CLoadedTraceLibrary library;
    CScriptedDisk disk(library.Module());
    CScriptedDisk::s_dwDelayMs = 100;
    const ULONGLONG begin = GetTickCount64();
    for (int record = 0; record < 30; ++record)
    {
        library.Write(std::to_string(record));
    }
    EXPECT_LT(GetTickCount64() - begin, kMomentMs);
    library.Free();
    disk.Forget();
    EXPECT_THAT(file.Texts(), SizeIs(30));
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
