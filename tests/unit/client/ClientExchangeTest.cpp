// Posts that are waited for: what the component is asked, and what the host is told.
#include "support/TempFolder.h"
#include "unit/client/ClientTest.h"

using kvHttp::Answer;
using kvHttp::Outcome;
using testing::ElementsAre;
using testing::IsEmpty;
using namespace std::chrono_literals;

namespace
{

class ClientExchangeTest : public ClientTest
{
};

TEST_F(ClientExchangeTest, PostsAndGivesTheAnswer)
{
    m_httpRaw.m_statuses.Then(REQ_STATUS_SENDING).Then(REQ_STATUS_RECEIVING).Then(REQ_STATUS_DONE);
    m_httpRaw.m_answer = L"the answer";
    const Answer answer = m_client.Post(L"http://host/", L"a=1");
    EXPECT_TRUE(answer);
    EXPECT_EQ(answer.outcome, Outcome::Done);
    EXPECT_EQ(answer.strText, L"the answer");
    EXPECT_EQ(answer.nStatus, static_cast<unsigned long>(REQ_STATUS_DONE));
    EXPECT_EQ(answer.nElapsedMs, 100u) << "two waits of 50 ms";
    EXPECT_THAT(m_httpRaw.m_calls,
                ElementsAre(L"SetTimeout 60", L"SetParentWnd 0", L"SetTraceResponse 0", L"SetDownloadFile ",
                            L"PostRequest http://host/ a=1", L"GetResponseData"));
}

TEST_F(ClientExchangeTest, PassesTheSettingsOn)
{
    m_httpRaw.m_statuses.Always(REQ_STATUS_FAILED);
    m_client.SetTimeout(7s);
    m_client.SetParentWnd(reinterpret_cast<HWND>(ULONG_PTR{4711}));
    m_client.SetTraceResponse(true);
    m_client.Post(L"u", L"d");
    EXPECT_THAT(m_httpRaw.m_calls, ElementsAre(L"SetTimeout 7", L"SetParentWnd 4711", L"SetTraceResponse 1",
                                               L"SetDownloadFile ", L"PostRequest u d"));
}

TEST_F(ClientExchangeTest, MakesAnOutcomeOfEachStatus)
{
    const std::pair<unsigned long, Outcome> rows[] = {{REQ_STATUS_HTTP_ERROR, Outcome::Refused},
                                                      {REQ_STATUS_FAILED, Outcome::Failed},
                                                      {REQ_STATUS_NOT_CONNECTED, Outcome::NotConnected},
                                                      {REQ_STATUS_TIMEOUT, Outcome::TimedOut},
                                                      {REQ_STATUS_DONE, Outcome::Done},
                                                      {4, Outcome::Failed}};
    for (const auto& [status, outcome] : rows)
    {
        SCOPED_TRACE(status);
        m_httpRaw.m_statuses.Always(status);
        const Answer answer = m_client.Post(L"u", L"d");
        EXPECT_EQ(answer.outcome, outcome);
        EXPECT_EQ(answer.nStatus, status);
        EXPECT_STREQ(answer.Reason(), Describe(outcome));
    }
    EXPECT_EQ(m_factory.m_made, 1) << "one component serves them all";
}

TEST_F(ClientExchangeTest, SendsNothingWithoutAUrlOrData)
{
    EXPECT_EQ(m_client.Post(L"", L"d").outcome, Outcome::NoUrl);
    EXPECT_EQ(m_client.Post(L"u", L"").outcome, Outcome::NoData);
    EXPECT_THAT(m_httpRaw.m_calls, IsEmpty());
}

TEST_F(ClientExchangeTest, AnAnswerWithoutAByteIsAnEmptyText)
{
    m_httpRaw.m_statuses.Always(REQ_STATUS_DONE);
    const Answer answer = m_client.Post(L"u", L"d");
    EXPECT_EQ(answer.outcome, Outcome::Done);
    EXPECT_EQ(answer.strText, L"");
}

TEST_F(ClientExchangeTest, AnAnswerIsTakenOnce)
{
    m_httpRaw.m_statuses.Always(REQ_STATUS_DONE);
    m_httpRaw.m_answer = L"once";
    EXPECT_EQ(m_client.Start({L"u", L"d", L""}), Outcome::Running);
    EXPECT_EQ(m_client.Poll(), Outcome::Done);
    EXPECT_EQ(m_client.TakeAnswer().strText, L"once");
    const Answer again = m_client.TakeAnswer();
    EXPECT_EQ(again.outcome, Outcome::Done);
    EXPECT_EQ(again.strText, L"");
}

TEST_F(ClientExchangeTest, WhatRunsHasNoAnswerNotEvenAnEarlierOne)
{
    m_httpRaw.m_statuses.Always(REQ_STATUS_DONE);
    m_httpRaw.m_answer = L"of an earlier post";
    m_client.Start({L"u", L"d", L""});
    ASSERT_EQ(m_client.Poll(), Outcome::Done);
    m_client.Start({L"u", L"d", L""});
    const Answer answer = m_client.TakeAnswer();
    EXPECT_EQ(answer.outcome, Outcome::Running);
    EXPECT_EQ(answer.strText, L"");
}

TEST_F(ClientExchangeTest, AsksForNoTimeoutThatTheComponentCannotCount)
{
    m_client.SetTimeout(4294968s);
    m_client.Start({L"u", L"d", L""});
    EXPECT_EQ(m_httpRaw.m_calls.front(), L"SetTimeout 4294967");
}

TEST_F(ClientExchangeTest, SaysWhenTheComponentHasNoMemory)
{
    m_httpRaw.m_hrPost = E_FAIL;
    EXPECT_EQ(m_client.Post(L"u", L"d").outcome, Outcome::NoMemory);
    m_httpRaw.m_hrPost = S_OK;
    m_httpRaw.m_bThrow = true;
    m_httpRaw.m_statuses.Always(REQ_STATUS_DONE);
    EXPECT_EQ(m_client.Post(L"u", L"d").outcome, Outcome::NoMemory);
    EXPECT_EQ(m_client.State().outcome, Outcome::NoMemory);
}

TEST_F(ClientExchangeTest, ThrowsWhereTheHostAsksForIt)
{
    m_httpRaw.m_statuses.Always(REQ_STATUS_DONE);
    m_httpRaw.m_answer = L"text";
    EXPECT_EQ(m_client.Post(L"u", L"d").OrThrow().strText, L"text");
    m_httpRaw.m_statuses.Always(REQ_STATUS_HTTP_ERROR);
    const Answer answer = m_client.Post(L"u", L"d");
    try
    {
        answer.OrThrow();
        FAIL() << "nothing was thrown";
    }
    catch (const kvHttp::CFailure& failure)
    {
        EXPECT_EQ(failure.Which(), Outcome::Refused);
        EXPECT_STREQ(
            failure.what(),
            "The server answered 400, 401, 404 or 405: check the path of the URL, and whether that page "
            "takes this form without a login.");
    }
}

class ClientFileTest : public ClientTest
{
protected:
    std::wstring Path(const wchar_t* pszName) const { return m_folder.Wide() + L"\\" + pszName; }
    // What the component does with the file, when it is done.
    void Answer(const std::string& bytes)
    {
        m_httpRaw.m_statuses.Always(REQ_STATUS_DONE);
        m_httpRaw.m_onPoll = [=, this]
        { std::ofstream(std::filesystem::path(m_httpRaw.m_file), std::ios::binary) << bytes; };
    }

    static DWORD WINAPI Attributes(const wchar_t*) { return s_dwAttributes; }
    static inline DWORD s_dwAttributes = 0;

    CTempFolder m_folder;
};

TEST_F(ClientFileTest, TakesAnAnswerIntoAFileAndLeavesTheTextAlone)
{
    Answer("12345");
    const kvHttp::Answer answer = m_client.PostToFile(L"u", L"d", Path(L"new"));
    EXPECT_EQ(answer.outcome, Outcome::Done);
    EXPECT_EQ(answer.nFileBytes, 5u);
    EXPECT_EQ(m_httpRaw.m_file, Path(L"new"));
    EXPECT_THAT(m_httpRaw.m_calls, testing::Not(testing::Contains(L"GetResponseData")));
}

TEST_F(ClientFileTest, CompletesARelativePathAtOnce)
{
    Answer("1");
    wchar_t szBefore[MAX_PATH] = {};
    GetCurrentDirectoryW(MAX_PATH, szBefore);
    SetCurrentDirectoryW(m_folder.Wide().c_str());
    m_client.PostToFile(L"u", L"d", L"relative");
    SetCurrentDirectoryW(szBefore);
    EXPECT_EQ(std::filesystem::path(m_httpRaw.m_file), m_folder.Path() / L"relative");
}

TEST_F(ClientFileTest, SendsNothingWhenTheFileCannotBeMade)
{
    EXPECT_EQ(m_client.PostToFile(L"u", L"d", Path(L"no\\such\\folder")).outcome, Outcome::FileNotWritable);
    EXPECT_EQ(m_client.PostToFile(L"u", L"d", m_folder.Wide()).outcome, Outcome::FileNotWritable);
    EXPECT_THAT(m_httpRaw.m_calls, IsEmpty());
}

TEST_F(ClientFileTest, AStartOfNothingLeavesTheTimeAndTheFileOfTheLastExchange)
{
    const kvHttp::Form nowhere{L"u", L"d", Path(L"no\\such\\folder")};
    EXPECT_EQ(m_client.Start(nowhere), Outcome::FileNotWritable);
    EXPECT_EQ(m_client.State().nElapsedMs, 0u);
    Answer("12345");
    EXPECT_EQ(m_client.Start({L"u", L"d", Path(L"new")}), Outcome::Running);
    s_now += 70;
    EXPECT_EQ(m_client.Poll(), Outcome::Done);
    s_now += 1000;
    EXPECT_EQ(m_client.Start(nowhere), Outcome::FileNotWritable);
    EXPECT_EQ(m_client.State().nElapsedMs, 70u);
    EXPECT_EQ(m_client.State().nFileBytes, 5u);
}

// Windows makes no file anew in the place of such a one.
TEST_F(ClientFileTest, SendsNothingIntoAHiddenFileOrOneOfTheSystem)
{
    m_folder.Write(L"old", "as it was");
    for (const DWORD dwAttribute : {DWORD{FILE_ATTRIBUTE_HIDDEN}, DWORD{FILE_ATTRIBUTE_SYSTEM}})
    {
        s_dwAttributes = FILE_ATTRIBUTE_ARCHIVE | dwAttribute;
        m_imports.Add("GetFileAttributesW", Attributes);
        EXPECT_EQ(m_client.PostToFile(L"u", L"d", Path(L"old")).outcome, Outcome::FileNotWritable)
            << dwAttribute;
    }
    EXPECT_THAT(m_httpRaw.m_calls, IsEmpty());
}

TEST_F(ClientFileTest, ChangesNoFileBeforeTheAnswer)
{
    m_folder.Write(L"old", "as it was");
    m_httpRaw.m_statuses.Always(REQ_STATUS_FAILED);
    m_client.PostToFile(L"u", L"d", Path(L"old"));
    m_client.PostToFile(L"u", L"d", Path(L"new"));
    EXPECT_EQ(std::filesystem::file_size(Path(L"old")), 9u);
    EXPECT_FALSE(std::filesystem::exists(Path(L"new")));
}

TEST_F(ClientFileTest, GivesBytesThatAreNoText)
{
    const std::string bytes("a\0\xFF\n", 4);
    Answer(bytes);
    const kvHttp::Answer answer = m_client.PostForBytes(L"u", L"d");
    EXPECT_EQ(answer.outcome, Outcome::Done);
    EXPECT_EQ(answer.strBytes, bytes);
    EXPECT_FALSE(std::filesystem::exists(m_httpRaw.m_file)) << "the temporary file";
}

TEST_F(ClientFileTest, SaysWhenTheBytesCannotBeRead)
{
    m_httpRaw.m_statuses.Always(REQ_STATUS_DONE);
    m_httpRaw.m_onPoll = [this] { DeleteFileW(m_httpRaw.m_file.c_str()); };
    EXPECT_EQ(m_client.PostForBytes(L"u", L"d").outcome, Outcome::FileUnreadable);
}

TEST_F(ClientFileTest, ReportsHowTheFileGrows)
{
    m_folder.Write(L"file", "an old one");
    for (const unsigned long status : {5ul, 6ul, 6ul, 6ul, 9ul})
    {
        m_httpRaw.m_statuses.Then(status);
    }
    m_httpRaw.m_onPoll = [this]
    {
        const size_t sizes[] = {0, 10, 3, 3, 4, 5};
        const std::string bytes(sizes[m_httpRaw.m_polls], 'x');
        std::ofstream(std::filesystem::path(m_httpRaw.m_file)) << bytes;
    };
    std::vector<unsigned long long> sizes;
    m_client.OnChange([&](const kvHttp::Progress& progress) { sizes.push_back(progress.nFileBytes); });
    EXPECT_EQ(m_client.PostToFile(L"u", L"d", Path(L"file")).nFileBytes, 5u);
    EXPECT_THAT(sizes, ElementsAre(0, 3, 4, 5));
}

// Its worker deletes the file by name, and could meet that of the next exchange.
TEST_F(ClientFileTest, WaitsForAStoppedDownloadBeforeTheNextOne)
{
    m_client.Start({L"u", L"d", Path(L"file")});
    m_client.Cancel();
    EXPECT_EQ(m_httpRaw.m_references, 1u);
    m_httpRaw.m_statuses.Always(REQ_STATUS_FAILED);
    m_client.Post(L"u", L"d");
    EXPECT_EQ(m_factory.m_made, 1) << "no file is in danger";
    m_client.PostToFile(L"u", L"d", Path(L"file"));
    EXPECT_EQ(m_factory.m_made, 2);
    m_client.PostToFile(L"u", L"d", Path(L"file"));
    EXPECT_EQ(m_factory.m_made, 2) << "nothing is left of the stopped one";
}

}  // namespace
