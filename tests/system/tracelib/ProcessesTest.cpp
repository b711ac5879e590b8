// Several processes that append to one file, and processes that end in every way there is.
#include <gmock/gmock.h>

#include <map>

#include "system/tracelib/TracedFile.h"

using testing::Contains;
using testing::Each;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;

namespace
{

constexpr DWORD kPatienceMs = 35000;

class CTraceHost
{
public:
    CTraceHost(const std::wstring& name, int threads, int records, const std::wstring& end)
    {
        std::wstring command = L"TraceHost.exe \"" + BuiltTraceLibrary() + L"\" " + name + L" " +
                               std::to_wstring(threads) + L" " + std::to_wstring(records) + L" " + end;
        STARTUPINFOW startup = {};
        startup.cb = sizeof(startup);
        EXPECT_TRUE(CreateProcessW(BesideThisProgram(L"TraceHost.exe").c_str(), command.data(), nullptr,
                                   nullptr, FALSE, 0, nullptr, nullptr, &startup, &m_process));
    }
    ~CTraceHost()
    {
        CloseHandle(m_process.hThread);
        CloseHandle(m_process.hProcess);
    }
    CTraceHost(const CTraceHost&) = delete;
    CTraceHost& operator=(const CTraceHost&) = delete;

    DWORD ExitCode() const
    {
        DWORD dwCode = 0;
        EXPECT_EQ(WaitForSingleObject(m_process.hProcess, kPatienceMs), WAIT_OBJECT_0);
        GetExitCodeProcess(m_process.hProcess, &dwCode);
        return dwCode;
    }

private:
    PROCESS_INFORMATION m_process = {};
};

// Lets hosts that are started meanwhile trace at the same time, not one after the other.
class CStart
{
public:
    CStart()
        : m_hReady(CreateSemaphoreW(nullptr, 0, 99, (Name() + L"-ready").c_str())),
          m_hGo(CreateEventW(nullptr, TRUE, FALSE, (Name() + L"-go").c_str()))
    {
    }
    ~CStart()
    {
        CloseHandle(m_hReady);
        CloseHandle(m_hGo);
    }
    CStart(const CStart&) = delete;
    CStart& operator=(const CStart&) = delete;

    void Go(int hosts) const
    {
        for (int host = 0; host < hosts; ++host)
        {
            EXPECT_EQ(WaitForSingleObject(m_hReady, kPatienceMs), WAIT_OBJECT_0);
        }
        SetEvent(m_hGo);
    }

private:
    static std::wstring Name() { return L"kvhttp-trace-" + std::to_wstring(GetCurrentProcessId()); }

    const CVariable m_variable{L"KVHTTP_TRACE_START", Name()};
    const HANDLE m_hReady;
    const HANDLE m_hGo;
};

// Expects all records of a host, each thread's in their order.
void ExpectAll(const std::vector<std::string>& texts, const std::string& name, int threads, int records)
{
    std::map<std::string, int> next;
    for (const std::string& text : texts)
    {
        const size_t place = text.find(" record ");
        if (!text.starts_with(name + " ") || place == std::string::npos)
        {
            continue;
        }
        int& record = next[text.substr(0, place)];
        EXPECT_EQ(text.substr(place), " record " + std::to_string(record) +
                                          (record % 10 == 9 ? " " + std::string(5000, 'x') : "") + ",")
            << text.substr(0, place);
        ++record;
    }
    EXPECT_THAT(next, SizeIs(threads)) << name;
    for (const auto& [thread, count] : next)
    {
        EXPECT_EQ(count, records) << thread;
    }
}

TEST(TraceProcessesTest, AppendToOneFileWithoutTearingLines)
{
    CTracedFile file;
    {
        const CStart start;
        const CTraceHost first(L"first", 3, 300, L"unload");
        const CTraceHost second(L"second", 3, 300, L"unload");
        const CTraceHost third(L"third", 3, 300, L"return");
        start.Go(3);
        EXPECT_EQ(first.ExitCode(), 0u);
        EXPECT_EQ(second.ExitCode(), 0u);
        EXPECT_EQ(third.ExitCode(), 0u);
    }
    const std::vector<std::string> texts = file.Texts();
    ExpectAll(texts, "first", 3, 300);
    ExpectAll(texts, "second", 3, 300);
    ExpectAll(texts, "third", 3, 300);
}

TEST(TraceProcessesTest, SetTheFileAsideWithoutLosingLines)
{
    CTracedFile file;
    const CVariable limit(L"QNZTRACE_LIMIT", L"20K");
    const CVariable keep(L"QNZTRACE_KEEP", L"99");
    {
        const CStart start;
        const CTraceHost first(L"first", 2, 100, L"unload");
        const CTraceHost second(L"second", 2, 100, L"unload");
        start.Go(2);
        EXPECT_EQ(first.ExitCode(), 0u);
        EXPECT_EQ(second.ExitCode(), 0u);
    }
    const std::vector<std::string> texts = file.Texts();
    ExpectAll(texts, "first", 2, 100);
    ExpectAll(texts, "second", 2, 100);
    EXPECT_TRUE(std::filesystem::exists(file.Path() + L".5"));
    // Records that come while one is written are written together, 64 KB of them at most, and stay together.
    EXPECT_LE(std::filesystem::file_size(file.Path() + L".5"), 70u * 1024);
}

struct EndRow
{
    const char* end;
    DWORD dwCode;
    bool bSaysSo;
};

TEST(TraceProcessesTest, LoseNothingHoweverTheyEnd)
{
    constexpr EndRow kRows[] = {
        {"unload", 0, true},
        {"return", 0, true},
        {"exit", 0, true},
        {"kill", 0, false},
        {"crash", EXCEPTION_ACCESS_VIOLATION, false},
    };
    for (const EndRow& row : kRows)
    {
        SCOPED_TRACE(row.end);
        CTracedFile file;
        const std::string end = row.end;
        EXPECT_EQ(CTraceHost(L"host", 2, 30, std::wstring(end.begin(), end.end())).ExitCode(), row.dwCode);
        ExpectAll(file.Texts(), "host", 2, 30);
        EXPECT_THAT(file.Notes(), Contains(StartsWith("trace begins: ")).Times(1));
        EXPECT_THAT(file.Notes(), Contains("trace ends").Times(row.bSaysSo ? 1 : 0));
    }
}

}  // namespace
