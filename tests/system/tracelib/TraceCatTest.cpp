// The viewer as a program, on what the built library writes.
#include <gmock/gmock.h>

#include "system/tracelib/TracedFile.h"

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

namespace
{

constexpr DWORD kPatienceMs = 20000;

// tracecat.exe with both of its streams in a pipe.
class CViewer
{
public:
    explicit CViewer(const std::wstring& arguments)
    {
        SECURITY_ATTRIBUTES security = {sizeof(security), nullptr, TRUE};
        HANDLE hWrite = nullptr;
        EXPECT_TRUE(CreatePipe(&m_hRead, &hWrite, &security, 0));
        SetHandleInformation(m_hRead, HANDLE_FLAG_INHERIT, 0);
        std::wstring command = L"tracecat.exe " + arguments;
        STARTUPINFOW startup = {};
        startup.cb = sizeof(startup);
        startup.dwFlags = STARTF_USESTDHANDLES;
        startup.hStdOutput = hWrite;
        startup.hStdError = hWrite;
        EXPECT_TRUE(CreateProcessW(BesideThisProgram(L"tracecat.exe").c_str(), command.data(), nullptr,
                                   nullptr, TRUE, 0, nullptr, nullptr, &startup, &m_process));
        CloseHandle(hWrite);
    }
    ~CViewer()
    {
        TerminateProcess(m_process.hProcess, 0);
        CloseHandle(m_process.hThread);
        CloseHandle(m_process.hProcess);
        CloseHandle(m_hRead);
    }
    CViewer(const CViewer&) = delete;
    CViewer& operator=(const CViewer&) = delete;

    // What it has printed up to that text, or in all until it ends.
    std::string ReadUntil(const std::string& text)
    {
        char byte = 0;
        DWORD cb = 0;
        std::string printed;
        while (!printed.ends_with(text) && ReadFile(m_hRead, &byte, 1, &cb, nullptr) && cb == 1)
        {
            printed += byte;
        }
        return printed;
    }
    std::string ReadAll() { return ReadUntil("there is no such text"); }

    DWORD ExitCode() const
    {
        DWORD dwCode = STILL_ACTIVE;
        EXPECT_EQ(WaitForSingleObject(m_process.hProcess, kPatienceMs), WAIT_OBJECT_0);
        GetExitCodeProcess(m_process.hProcess, &dwCode);
        return dwCode;
    }

private:
    HANDLE m_hRead = nullptr;
    PROCESS_INFORMATION m_process = {};
};

TEST(TraceCatTest, ShowsWhatTheLibraryWrites)
{
    CTracedFile file;
    CLoadedTraceLibrary library;
    library.Piece("--> CHttpRequest::OpenRequest\n \n");
    library.Write("InternetConnect failed!,dwError=12029", 8);
    library.Piece("<-- CHttpRequest::OpenRequest\n \n");
    library.Free();
    CViewer viewer(L"\"" + file.Path() + L"\"");
    const std::string shown = viewer.ReadAll();
    EXPECT_EQ(viewer.ExitCode(), 0u);
    EXPECT_THAT(shown, HasSubstr(" 2 | --> CHttpRequest::OpenRequest\n"));
    EXPECT_THAT(shown, HasSubstr(" 8 |   InternetConnect failed!,dwError=12029,\n"));
    EXPECT_THAT(shown, HasSubstr(" 2 | <-- CHttpRequest::OpenRequest  ("));
    EXPECT_THAT(shown, EndsWith(" 0 | trace ends\n"));
}

TEST(TraceCatTest, TakesOptionsAndPrintsUtf8)
{
    CTracedFile file;
    CLoadedTraceLibrary library;
    library.Write("%C3%A4");
    library.Write("other");
    library.Free();
    CViewer viewer(L"--decode --level 2 --text \u00E4 \"" + file.Path() + L"\"");
    EXPECT_THAT(viewer.ReadAll(), AllOf(EndsWith(" 2 | \u00E4,\n"), Not(HasSubstr("other"))));
}

TEST(TraceCatTest, FollowsAFileFromItsBeginningOn)
{
    CTracedFile file;
    CVariable limit(L"QNZTRACE_LIMIT", L"2K");
    CViewer viewer(L"--follow \"" + file.Path() + L"\"");
    CLoadedTraceLibrary library;
    library.Write("first");
    EXPECT_THAT(viewer.ReadUntil(" | first,\n"), HasSubstr("trace begins"));
    for (int record = 0; record < 100; ++record)
    {
        library.Write("record " + std::to_string(record));
        if (record % 20 == 19)
        {
            viewer.ReadUntil(" | record " + std::to_string(record) + ",\n");
        }
    }
    EXPECT_TRUE(std::filesystem::exists(file.Path() + L".2")) << "the file was not set aside";
    library.Write("last");
    EXPECT_THAT(viewer.ReadUntil(" | last,\n"), EndsWith(" | last,\n"));
}

TEST(TraceCatTest, ShowsALineWithoutItsEnd)
{
    const CTempFolder folder;
    const std::filesystem::path path = folder.Write("t.log", "2026-01-02T03:04:05.000100Z 2 1 1 cut");
    CViewer viewer(L"\"" + path.wstring() + L"\"");
    EXPECT_THAT(viewer.ReadAll(), EndsWith(" 2 | cut\n"));
}

TEST(TraceCatTest, BeginsWithOldFilesOnRequest)
{
    const CTempFolder folder;
    folder.Write("t.log.1", "2026-01-02T03:04:05.000100Z 2 1 1 old\n");
    const std::filesystem::path path = folder.Write("t.log", "2026-01-02T03:04:05.000200Z 2 1 1 new\n");
    CViewer without(L"\"" + path.wstring() + L"\"");
    EXPECT_THAT(without.ReadAll(), Not(HasSubstr("old")));
    CViewer with(L"--old \"" + path.wstring() + L"\"");
    EXPECT_THAT(with.ReadAll(), AllOf(HasSubstr(" | old\n"), EndsWith(" | new\n")));
}

struct CodeRow
{
    const wchar_t* arguments;
    DWORD dwCode;
    const char* printed;
};

TEST(TraceCatTest, ExitCodeTellsWhatWasWrong)
{
    const CTempFolder folder;
    folder.Write("empty.log", "");
    constexpr CodeRow kRows[] = {
        {L"--help", 0, "usage: tracecat"},
        {L"empty.log", 0, ""},
        {L"none.log", 1, "none.log cannot be read"},
        {L"--timeline empty.log", 1, "there is no such exchange in the file; it has 0"},
        {L"", 2, "which file?"},
        {L"--nonsense empty.log", 2, "--nonsense makes no sense here"},
    };
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(folder.Path());
    for (const CodeRow& row : kRows)
    {
        CViewer viewer(row.arguments);
        EXPECT_THAT(viewer.ReadAll(), HasSubstr(row.printed));
        EXPECT_EQ(viewer.ExitCode(), row.dwCode) << row.printed;
    }
    std::filesystem::current_path(before);
}

}  // namespace
