// The sample's exchanges, as its user sees them.
#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>

#include "kvHttp/Outcome.h"
#include "PostFormWindow/StatusText.h"
#include "support/loopback/LoopbackServer.h"
#include "support/TempFolder.h"
#include "system/window/SampleWindow.h"

namespace
{

using testing::HasSubstr;
using testing::MatchesRegex;

constexpr DWORD kPatienceMs = 10000;
constexpr size_t kFirstPart = 1024 * 1024;
constexpr size_t kDownload = 3 * kFirstPart + 1;

std::string Narrow(const std::wstring& text)
{
    std::string narrow;
    for (const wchar_t character : text)
    {
        narrow += character < 0x80 ? static_cast<char>(character) : '?';
    }
    return narrow;
}

// Answers /stall only once the server is released, and everything else at once.
CLoopbackServer::Script AnswerWith(const std::string& text)
{
    return [text](const CLoopbackRequest& request, CLoopbackConnection& connection)
    {
        if (request.strTarget == "/stall")
        {
            connection.AwaitRelease(kPatienceMs);
        }
        connection.Send(MakeAnswer(200, text));
    };
}

std::vector<std::wstring> Arguments(const std::wstring& url)
{
    return {L"--url", url, L"--data", L"name=Ada&city=Z\u00FCrich", L"--timeout", L"20"};
}

bool IsMarquee(const CSampleWindow& sample)
{
    constexpr LONG kMarquee = 8;
    return (GetWindowLongW(sample.Control(ID_PROGRESS), GWL_STYLE) & kMarquee) != 0;
}

void ExpectReadyToPost(const CSampleWindow& sample)
{
    EXPECT_TRUE(sample.IsEnabled(ID_POST));
    EXPECT_FALSE(sample.IsEnabled(ID_STOP));
    EXPECT_FALSE(IsMarquee(sample));
}

void ExpectRunning(const CSampleWindow& sample)
{
    EXPECT_FALSE(sample.IsEnabled(ID_POST));
    EXPECT_TRUE(sample.IsEnabled(ID_STOP));
    EXPECT_TRUE(IsMarquee(sample));
}

TEST(ExchangeWindowTest, EnterPostsThePrefilledFormAndShowsTheAnswer)
{
    CLoopbackServer server(AnswerWith("one\ntwo\r\nthree\rZ\xC3\xBCrich\n"));
    const CSampleWindow sample(Arguments(server.Url(L"/form")));
    EXPECT_EQ(sample.Text(ID_STATUS), L"REQ_STATUS_IDLE");
    EXPECT_EQ(sample.Text(ID_TIMEOUT), L"20");
    EXPECT_EQ(sample.Focus(), ID_URL);
    ExpectReadyToPost(sample);

    sample.PressKey(VK_RETURN);
    ASSERT_TRUE(sample.AwaitStatus(L"REQ_STATUS_DONE")) << Narrow(sample.Text(ID_STATUS));
    EXPECT_THAT(Narrow(sample.Text(ID_STATUS)), MatchesRegex("REQ_STATUS_DONE, \\d+\\.\\d s"));
    EXPECT_EQ(sample.Text(ID_MEANING), L"The answer is complete.");
    EXPECT_EQ(sample.Text(ID_ANSWER), L"one\r\ntwo\r\nthree\r\nZ\u00FCrich\r\n");
    ExpectReadyToPost(sample);
    ASSERT_EQ(server.Requests().size(), 1u);
    EXPECT_EQ(server.Requests().front().strBody, "name=Ada&city=Z\xC3\xBCrich");
    // The window is at rest: nothing goes on counting.
    const std::wstring status = sample.Text(ID_STATUS);
    Sleep(200);
    EXPECT_EQ(sample.Text(ID_STATUS), status);
}

TEST(ExchangeWindowTest, EscapeStopsAStalledExchangeAndTheNextPostWorks)
{
    CLoopbackServer server(AnswerWith("the answer"));
    const CSampleWindow sample(Arguments(server.Url(L"/stall")));
    sample.Click(ID_POST);
    ASSERT_TRUE(sample.AwaitStatus(L"REQ_STATUS_SENDING, "));
    ASSERT_TRUE(server.AwaitRequests(1, kPatienceMs));
    const std::wstring status = sample.Text(ID_STATUS);
    EXPECT_TRUE(sample.Await([&] { return sample.Text(ID_STATUS) != status; })) << "the time stands still";
    ExpectRunning(sample);

    sample.PressKey(VK_ESCAPE);
    ASSERT_TRUE(sample.AwaitStatus(L"Stop"));
    // Wine's worker stays until the server lets it go; the window lives on all the same.
    for (int turn = 0; turn < 20; ++turn)
    {
        EXPECT_TRUE(sample.IsResponsive());
    }
    server.Release();
    ASSERT_TRUE(sample.AwaitStatus(L"Stopped after "));
    EXPECT_THAT(Narrow(sample.Text(ID_STATUS)), MatchesRegex("Stopped after \\d+\\.\\d s"));
    EXPECT_EQ(sample.Text(ID_MEANING), kStoppedText);
    EXPECT_EQ(sample.Text(ID_ANSWER), L"");
    ASSERT_TRUE(sample.Await([&] { return sample.IsEnabled(ID_POST); }));
    ExpectReadyToPost(sample);

    sample.SetText(ID_URL, server.Url(L"/form"));
    sample.Click(ID_POST);
    ASSERT_TRUE(sample.AwaitStatus(L"REQ_STATUS_DONE"));
    EXPECT_EQ(sample.Text(ID_ANSWER), L"the answer");
}

TEST(ExchangeWindowTest, TheButtonsPassTheFocusToEachOther)
{
    CLoopbackServer server(AnswerWith("the answer"));
    const CSampleWindow sample(Arguments(server.Url(L"/stall")));
    SendMessageW(sample.Handle(), WM_NEXTDLGCTL, reinterpret_cast<WPARAM>(sample.Control(ID_POST)), TRUE);
    ASSERT_EQ(sample.Focus(), ID_POST);
    sample.PressKey(VK_SPACE);
    ASSERT_TRUE(sample.AwaitStatus(L"REQ_STATUS_SENDING"));
    EXPECT_EQ(sample.Focus(), ID_STOP);
    sample.PressKey(VK_SPACE);
    ASSERT_TRUE(sample.AwaitStatus(L"Stop"));
    server.Release();
    EXPECT_TRUE(sample.AwaitStatus(L"Stopped after "));
    EXPECT_TRUE(sample.Await([&] { return sample.Focus() == ID_POST; }));
    ExpectReadyToPost(sample);
}

TEST(ExchangeWindowTest, EscapeWithoutAnExchangeDoesNothing)
{
    const CSampleWindow sample({});
    sample.PressKey(VK_ESCAPE);
    EXPECT_TRUE(sample.IsResponsive());
    EXPECT_EQ(sample.Text(ID_STATUS), L"REQ_STATUS_IDLE");
    sample.Close();
    EXPECT_EQ(sample.AwaitExit(), 0u);
}

TEST(ExchangeWindowTest, ClosingDuringAnExchangeEndsTheProcess)
{
    CLoopbackServer server(AnswerWith("the answer"));
    const CSampleWindow sample(Arguments(server.Url(L"/stall")));
    sample.Click(ID_POST);
    ASSERT_TRUE(sample.AwaitStatus(L"REQ_STATUS_SENDING"));
    ASSERT_TRUE(server.AwaitRequests(1, kPatienceMs));
    sample.Close();
    EXPECT_TRUE(
        sample.Await([&] { return !IsWindow(sample.Handle()) || sample.Text(ID_STATUS) == L"Stopping"; }));
    server.Release();
    EXPECT_EQ(sample.AwaitExit(), 0u);
}

TEST(ExchangeWindowTest, ClosingWhileStoppingEndsTheProcess)
{
    CLoopbackServer server(AnswerWith("the answer"));
    const CSampleWindow sample(Arguments(server.Url(L"/stall")));
    sample.Click(ID_POST);
    ASSERT_TRUE(sample.AwaitStatus(L"REQ_STATUS_SENDING"));
    ASSERT_TRUE(server.AwaitRequests(1, kPatienceMs));
    sample.Click(ID_STOP);
    ASSERT_TRUE(sample.AwaitStatus(L"Stop"));
    sample.Close();
    EXPECT_TRUE(sample.IsResponsive());
    server.Release();
    EXPECT_EQ(sample.AwaitExit(), 0u);
}

TEST(ExchangeWindowTest, ADownloadShowsItsBytesAndMakesTheFile)
{
    const std::string body = MakeBytes(kDownload);
    const std::string answer = MakeAnswer(200, body);
    const size_t head = answer.size() - body.size();
    CLoopbackServer server(
        [&](const CLoopbackRequest&, CLoopbackConnection& connection)
        {
            connection.Send(std::string_view(answer).substr(0, head + kFirstPart));
            connection.AwaitRelease(kPatienceMs);
            connection.Send(std::string_view(answer).substr(head + kFirstPart));
        });
    const CTempFolder folder;
    const std::filesystem::path path = folder.Path() / L"the r\u00E9port.bin";
    std::vector<std::wstring> arguments = Arguments(server.Url(L"/report"));
    arguments.insert(arguments.end(), {L"--file", path.wstring()});
    const CSampleWindow sample(arguments);

    sample.Click(ID_POST);
    EXPECT_TRUE(sample.Await([&] { return sample.Text(ID_BYTES) == L"1.00 MB so far"; }))
        << Narrow(sample.Text(ID_BYTES));
    EXPECT_TRUE(sample.AwaitStatus(L"REQ_STATUS_RECEIVING"));
    EXPECT_EQ(sample.Text(ID_MEANING), L"The answer is arriving.");
    ExpectRunning(sample);
    server.Release();
    ASSERT_TRUE(sample.AwaitStatus(L"REQ_STATUS_DONE"));
    EXPECT_EQ(sample.Text(ID_MEANING), kDoneInFileText);
    EXPECT_EQ(sample.Text(ID_BYTES), L"3.00 MB");
    ExpectReadyToPost(sample);
    std::ifstream stream(path, std::ios::binary);
    EXPECT_TRUE(std::string(std::istreambuf_iterator<char>(stream), {}) == body)
        << "the file is not the body";
}

TEST(ExchangeWindowTest, AFileThatCannotBeMadeIsToldBeforeAnythingIsSent)
{
    CLoopbackServer server(AnswerWith("the answer"));
    const CSampleWindow sample(
        {L"--url", server.Url(L"/form"), L"--data", L"a=1", L"--file", L"C:\\no\\such\\folder\\file"});
    sample.Click(ID_POST);
    ASSERT_TRUE(sample.AwaitStatus(L"Not sent"));
    EXPECT_EQ(sample.Text(ID_MEANING), Describe(kvHttp::Outcome::FileNotWritable));
    ExpectReadyToPost(sample);

    sample.SetText(ID_FILE, L"");
    sample.Click(ID_POST);
    ASSERT_TRUE(sample.AwaitStatus(L"REQ_STATUS_DONE"));
    EXPECT_EQ(sample.Text(ID_ANSWER), L"the answer");
    EXPECT_EQ(server.Requests().size(), 1u);
}

// The old worker holds the file until Wine's read has come to its end; Windows ends that at once, and the
// form is on its way before this test looks.
TEST(ExchangeWindowTest, AfterATimeOutTheNextPostWaitsForTheFile)
{
    CLoopbackServer server(
        [](const CLoopbackRequest& request, CLoopbackConnection& connection)
        {
            if (request.strTarget == "/form")
            {
                connection.Send(MakeAnswer(200, "the answer"));
                return;
            }
            connection.Send("HTTP/1.1 200 OK\r\nContent-Length: 100000\r\n\r\n");
            while (!connection.AwaitRelease(50) && connection.Send("x"))
            {
            }
            connection.Close();
        });
    const CTempFolder folder;
    const std::filesystem::path path = folder.Path() / L"answer.txt";
    const CSampleWindow sample(
        {L"--url", server.Url(L"/slow"), L"--data", L"a=1", L"--timeout", L"1", L"--file", path.wstring()});
    sample.Click(ID_POST);
    ASSERT_TRUE(sample.AwaitStatus(L"REQ_STATUS_TIMEOUT"));
    sample.SetText(ID_URL, server.Url(L"/form"));
    sample.SetText(ID_TIMEOUT, L"20");
    sample.Click(ID_POST);
    ASSERT_TRUE(sample.AwaitStatus(L"Stopping"));
    // What another program presses meanwhile is of no effect.
    SendMessageW(sample.Handle(), WM_COMMAND, ID_POST, 0);
    EXPECT_FALSE(server.AwaitRequests(2, 300));
    EXPECT_EQ(sample.Text(ID_STATUS), L"Stopping");
    server.Release();
    ASSERT_TRUE(sample.AwaitStatus(L"REQ_STATUS_DONE"));
    std::ifstream stream(path, std::ios::binary);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(stream), {}), "the answer");
    EXPECT_EQ(server.Requests().size(), 2u);
}

TEST(ExchangeWindowTest, AFailureLeavesNoOldAnswer)
{
    CLoopbackServer server(
        [](const CLoopbackRequest& request, CLoopbackConnection& connection)
        { connection.Send(MakeAnswer(request.strTarget == "/form" ? 200 : 404, "the answer")); });
    const CSampleWindow sample(Arguments(server.Url(L"/form")));
    sample.Click(ID_POST);
    ASSERT_TRUE(sample.AwaitStatus(L"REQ_STATUS_DONE"));
    EXPECT_EQ(sample.Text(ID_ANSWER), L"the answer");
    sample.SetText(ID_URL, server.Url(L"/none"));
    sample.Click(ID_POST);
    ASSERT_TRUE(sample.AwaitStatus(L"REQ_STATUS_HTTP_ERROR"));
    EXPECT_EQ(sample.Text(ID_MEANING), MeaningOf(0));
    EXPECT_EQ(sample.Text(ID_ANSWER), L"");
    ExpectReadyToPost(sample);
}

TEST(ExchangeWindowTest, BrowsingFillsInTheFile)
{
    const CTempFolder folder;
    const std::wstring path = folder.Wide() + L"\\answer.txt";
    const CSampleWindow sample({L"--file", path});
    sample.Click(ID_BROWSE);
    ASSERT_TRUE(sample.Await([&] { return sample.FindDialog() != nullptr; }));
    const HWND hDialog = sample.FindDialog();
    EXPECT_EQ(GetWindow(hDialog, GW_OWNER), sample.Handle());
    sample.SetText(ID_FILE, L"");
    PostMessageW(hDialog, WM_COMMAND, IDOK, 0);
    EXPECT_TRUE(sample.Await([&] { return sample.Text(ID_FILE) == path; })) << Narrow(sample.Text(ID_FILE));
    EXPECT_TRUE(sample.Await([&] { return IsWindowEnabled(sample.Handle()) != FALSE; }));
}

TEST(ExchangeWindowTest, WhatIsMissingIsToldAndGetsTheFocus)
{
    const CSampleWindow sample({});
    const auto expectRefusal = [&](int id, const std::wstring& text)
    {
        sample.SetText(ID_MEANING, L"");
        sample.Click(ID_POST);
        EXPECT_TRUE(sample.Await([&] { return sample.Text(ID_MEANING).find(text) != std::wstring::npos; }))
            << Narrow(text) << ", got: " << Narrow(sample.Text(ID_MEANING));
        EXPECT_TRUE(sample.Await([&] { return sample.Focus() == id; })) << Narrow(text);
        ExpectReadyToPost(sample);
    };
    expectRefusal(ID_URL, L"the URL");
    sample.SetText(ID_URL, L"http://127.0.0.1:1/");
    expectRefusal(ID_DATA, L"the form data");
    sample.SetText(ID_DATA, L"a=1");
    sample.SetText(ID_TIMEOUT, L"0");
    expectRefusal(ID_TIMEOUT, L"1 to 86400");
    sample.SetText(ID_TIMEOUT, L"86401");
    expectRefusal(ID_TIMEOUT, L"1 to 86400");
    sample.SetText(ID_TIMEOUT, L"");
    expectRefusal(ID_TIMEOUT, L"1 to 86400");
}

}  // namespace
