// The binding to the trace library: where it is looked for, when, and how records reach it.
#include "module/HttpRawTest.h"
#include "support/CallText.h"

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace
{

class TraceLibraryTest : public HttpRawTest
{
protected:
    Texts Library() const { return m_journal.Texts(CALL_LIBRARY); }

    static std::string LoadCall()
    {
        return "LoadLibraryW('" + ToUtf8(CBuiltModule::Folder().c_str()) + "\\qnztraceX64.dll')";
    }

    // The pieces that a record of an answer of that many characters is handed over in.
    std::vector<size_t> PiecesOfAnswer(size_t length)
    {
        m_winInet.m_reads.Then({std::string(length, 'x')});
        ClearJournal();
        Post();
        std::vector<size_t> lengths;
        std::string record;
        bool bAnswer = false;
        for (const std::string& text : Trace())
        {
            bAnswer = bAnswer || text.starts_with("2| xx");
            if (bAnswer)
            {
                lengths.push_back(text.size() - 2);
                record += text.substr(2);
                if (record.back() == '\n')
                {
                    break;
                }
            }
        }
        EXPECT_EQ(record, " " + std::string(length, 'x') + ",\n");
        return lengths;
    }
};

TEST_F(TraceLibraryTest, IsLoadedFromTheModulesFolderAtTheFirstRecord)
{
    EXPECT_THAT(Library(), IsEmpty());
    EXPECT_EQ(Status(), 1u);
    EXPECT_THAT(Library(), IsEmpty());
    Post();
    EXPECT_THAT(Library(), ElementsAre("GetModuleHandleW('qnztraceX64.dll')", LoadCall(),
                                       "GetProcAddress(trace, QNZTRACERAWA)"));
    Post();
    EXPECT_THAT(Library(), SizeIs(3));
}

TEST_F(TraceLibraryTest, IsFreedWhenTheModuleIsUnloaded)
{
    Post();
    ReleaseComponent();
    ClearJournal();
    Unload();
    EXPECT_THAT(Library(), ElementsAre("FreeLibrary(trace)"));
}

TEST_F(TraceLibraryTest, MissingLibraryDropsAllRecordsAndIsNotLookedForAgain)
{
    m_trace.m_bFound = false;
    m_winInet.m_reads.Then({"answer"});
    Post();
    Post();
    m_trace.m_bFound = true;
    Post();
    EXPECT_EQ(Status(), 9u);
    ReleaseComponent();
    Unload();
    EXPECT_THAT(Library(), ElementsAre("GetModuleHandleW('qnztraceX64.dll')", LoadCall()));
    EXPECT_THAT(Trace(), IsEmpty());
}

TEST_F(TraceLibraryTest, MissingExportIsLookedUpAgainAtEveryRecord)
{
    m_trace.m_exports.Then(false).Then(false);
    StartPost();
    EXPECT_THAT(Select(CALL_LIBRARY, "LoadLibraryW"), SizeIs(1));
    EXPECT_THAT(Select(CALL_LIBRARY, "GetProcAddress"), SizeIs(3));
    // The first two records of opening the session are lost.
    EXPECT_EQ(Trace().front(), NoBrowserRecords()[1]);
}

TEST_F(TraceLibraryTest, LongRecordsGoOutInPiecesOf2047Characters)
{
    // A blank before the text, a comma and a line feed behind it.
    EXPECT_THAT(PiecesOfAnswer(2043), ElementsAre(2046u));
    EXPECT_THAT(PiecesOfAnswer(2044), ElementsAre(2047u));
    EXPECT_THAT(PiecesOfAnswer(2045), ElementsAre(2047u, 1u));
    EXPECT_THAT(PiecesOfAnswer(4091), ElementsAre(2047u, 2047u));
    EXPECT_THAT(PiecesOfAnswer(4092), ElementsAre(2047u, 2047u, 1u));
    EXPECT_THAT(PiecesOfAnswer(10000), ElementsAre(2047u, 2047u, 2047u, 2047u, 1815u));
}

TEST_F(TraceLibraryTest, RecordsAreInTheAnsiCodePage)
{
    const std::wstring text = L"\u00E4\u4E2D!";
    char expected[32] = {};
    WideCharToMultiByte(CP_ACP, 0, text.c_str(), -1, expected, sizeof(expected), nullptr, nullptr);
    m_winInet.m_reads.Then({ToUtf8(text.c_str())});
    Post();
    EXPECT_EQ(TracedTexts().back(), "2| " + std::string(expected) + ",\n");
}

}  // namespace
