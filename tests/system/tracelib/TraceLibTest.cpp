// The built trace library in one process: what it writes, and where the settings may stand.
#include <gmock/gmock.h>

#include <map>
#include <memory>

#include "support/ImportPatch.h"
#include "support/Mutex.h"
#include "support/SideThread.h"
#include "system/tracelib/TracedFile.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

namespace
{

// What the library says to the debugger.
class CHeardByDebugger
{
public:
    explicit CHeardByDebugger(HMODULE hModule) : m_imports(hModule)
    {
        s_texts.clear();
        m_imports.Add("OutputDebugStringW", Hear);
    }

    static std::vector<std::wstring> Texts()
    {
        const std::lock_guard lock(s_mutex);
        return s_texts;
    }

    void Forget() { m_imports.Forget(); }

private:
    static void WINAPI Hear(LPCWSTR pszText)
    {
        const std::lock_guard lock(s_mutex);
        s_texts.emplace_back(pszText);
    }

    static inline CMutex s_mutex;
    static inline std::vector<std::wstring> s_texts;
    CImportPatches m_imports;
};

TEST(TraceLibTest, WritesEachRecordAsALine)
{
    CTracedFile file;
    CLoadedTraceLibrary library;
    library.Write("Http Send request");
    library.Piece("--> CHttpRequest::OpenRequest\n \n");
    library.Write("GetLastError,dwError=12029", 8);
    const std::vector<TracedLine> lines = file.Lines();
    ASSERT_THAT(lines, SizeIs(4));
    EXPECT_THAT(lines[0].strText, StartsWith("trace begins: "));
    EXPECT_THAT(lines[0].strText, HasSubstr("tracelib_tests.exe"));
    EXPECT_EQ(lines[0].strLevel, "0");
    EXPECT_EQ(lines[1].strText, "Http Send request,");
    EXPECT_EQ(lines[1].strLevel, "2");
    EXPECT_EQ(lines[1].strProcess, std::to_string(GetCurrentProcessId()));
    EXPECT_EQ(lines[1].strThread, std::to_string(GetCurrentThreadId()));
    EXPECT_EQ(lines[2].strText, "--> CHttpRequest::OpenRequest");
    EXPECT_EQ(lines[3].strText, "GetLastError,dwError=12029,");
    EXPECT_EQ(lines[3].strLevel, "8");
    EXPECT_LE(lines[1].strTime, lines[2].strTime);
    EXPECT_LE(lines[2].strTime, lines[3].strTime);
}

TEST(TraceLibTest, SaysThatTheTraceEnds)
{
    CTracedFile file;
    CLoadedTraceLibrary library;
    library.Write("a");
    EXPECT_TRUE(library.Free());
    ASSERT_THAT(file.Lines(), SizeIs(3));
    EXPECT_EQ(file.Notes().back(), "trace ends");
}

TEST(TraceLibTest, JoinsThePiecesOfARecord)
{
    CTracedFile file;
    CLoadedTraceLibrary library;
    const std::string longText = std::string(3000, 'a') + "\n" + std::string(3000, 'b');
    library.Write(longText);
    library.Write("short");
    EXPECT_THAT(file.Texts(),
                ElementsAre(std::string(3000, 'a') + "\u240A" + std::string(3000, 'b') + ",", "short,"));
}

TEST(TraceLibTest, PiecesOfTwoThreadsStayApart)
{
    CTracedFile file;
    CLoadedTraceLibrary library;
    library.Piece(" " + std::string(2046, 'a'));
    CSideThread([&] { library.Piece(" " + std::string(2046, 'b')); }).Join();
    CSideThread([&] { library.Write("between"); }).Join();
    library.Piece("a,\n");
    EXPECT_THAT(file.Texts(), ElementsAre("between,", std::string(2047, 'a') + ","));
}

TEST(TraceLibTest, LeavesTheLastErrorAsItWas)
{
    CTracedFile file;
    CLoadedTraceLibrary library;
    SetLastError(12345);
    library.Write("a");
    EXPECT_EQ(GetLastError(), 12345u);
    SetLastError(12345);
    library.Piece(std::string(2047, 'a'));
    EXPECT_EQ(GetLastError(), 12345u);
}

TEST(TraceLibTest, NothingIsNoRecord)
{
    CTracedFile file;
    CLoadedTraceLibrary library;
    const auto write = reinterpret_cast<TraceProc>(
        reinterpret_cast<void*>(GetProcAddress(library.Module(), "QNZTRACERAWA")));
    write(2, 0, 0, nullptr);
    write(2, 0, 0, "");
    EXPECT_FALSE(std::filesystem::exists(file.Path()));
}

TEST(TraceLibTest, ThreadsLoseNothingAndKeepTheirOrder)
{
    constexpr int kThreads = 8;
    constexpr int kRecords = 250;
    CTracedFile file;
    CLoadedTraceLibrary library;
    {
        std::vector<std::unique_ptr<CSideThread>> threads;
        for (int thread = 0; thread < kThreads; ++thread)
        {
            threads.push_back(std::make_unique<CSideThread>(
                [&library, thread]
                {
                    for (int record = 0; record < kRecords; ++record)
                    {
                        library.Write(std::to_string(thread) + ":" + std::to_string(record) + ":" +
                                      std::string(record % 50 == 0 ? 5000 : 20, 'x'));
                    }
                }));
        }
    }
    EXPECT_TRUE(library.Free());
    std::map<std::string, int> next;
    for (const std::string& text : file.Texts())
    {
        const size_t colon = text.find(':');
        int& record = next[text.substr(0, colon)];
        EXPECT_EQ(text.substr(colon + 1),
                  std::to_string(record) + ":" + std::string(record % 50 == 0 ? 5000 : 20, 'x') + ",");
        ++record;
    }
    EXPECT_THAT(next, SizeIs(kThreads));
    for (const auto& [thread, records] : next)
    {
        EXPECT_EQ(records, kRecords) << "of thread " << thread;
    }
    EXPECT_THAT(file.Notes(), SizeIs(2));
}

TEST(TraceLibTest, FileBesideItNamesTheTraceFile)
{
    const CTempFolder folder;
    const std::wstring path = folder.Wide() + L"\\qnztraceX64.dll";
    std::filesystem::copy_file(BuiltTraceLibrary(), path);
    folder.Write("qnztraceX64.ini", "file=beside.log\nnonsense\n");
    CLoadedTraceLibrary library(path);
    library.Write("a");
    EXPECT_TRUE(library.Free());
    std::ifstream stream(folder.Path() / "beside.log");
    std::string line;
    std::getline(stream, line);
    EXPECT_THAT(line, HasSubstr("trace begins"));
    std::getline(stream, line);
    EXPECT_THAT(line, HasSubstr("qnztraceX64.ini: line 2 makes no sense"));
    std::getline(stream, line);
    EXPECT_THAT(line, HasSubstr("a,"));
}

TEST(TraceLibTest, WithoutAFileItTellsTheDebuggerOnceAndDoesNothing)
{
    CLoadedTraceLibrary library;
    CHeardByDebugger heard(library.Module());
    for (int count = 0; count < 5; ++count)
    {
        library.Write("a");
    }
    library.Free();
    heard.Forget();
    EXPECT_THAT(
        CHeardByDebugger::Texts(),
        ElementsAre(L"qnztraceX64: no trace: neither QNZTRACE_FILE nor qnztraceX64.ini names a file\n"));
}

TEST(TraceLibTest, DebuggerGetsEachLineOnRequest)
{
    CTracedFile file;
    const CVariable debugger(L"QNZTRACE_DEBUGGER", L"1");
    CLoadedTraceLibrary library;
    CHeardByDebugger heard(library.Module());
    library.Write("a");
    library.Write("b");
    library.Free();
    heard.Forget();
    const std::vector<std::wstring> texts = CHeardByDebugger::Texts();
    ASSERT_THAT(texts, SizeIs(4));
    EXPECT_THAT(texts[0], HasSubstr(L"trace begins"));
    EXPECT_THAT(texts[1], testing::EndsWith(L" a,\n"));
    EXPECT_THAT(texts[2], testing::EndsWith(L" b,\n"));
    EXPECT_THAT(file.Texts(), ElementsAre("a,", "b,"));
}

TEST(TraceLibTest, DebuggerGetsNothingUnasked)
{
    CTracedFile file;
    CLoadedTraceLibrary library;
    CHeardByDebugger heard(library.Module());
    library.Write("a");
    library.Free();
    heard.Forget();
    EXPECT_THAT(CHeardByDebugger::Texts(), IsEmpty());
}

TEST(TraceLibTest, ForbiddenFileIsToldOnceAndHarmsNothing)
{
    const CTempFolder folder;
    const CVariable path(L"QNZTRACE_FILE", folder.Wide());
    CLoadedTraceLibrary library;
    CHeardByDebugger heard(library.Module());
    for (int count = 0; count < 50; ++count)
    {
        library.Write("a");
    }
    library.Free();
    heard.Forget();
    EXPECT_THAT(CHeardByDebugger::Texts(), ElementsAre(StartsWith(L"qnztraceX64: error 5 at the file ")));
}

}  // namespace
