// The platform's dialog about a certificate, over the sample's window.
#include <gtest/gtest.h>

#include <cstdlib>

#include "system/window/SampleWindow.h"

namespace
{

std::wstring TlsUrl()
{
    const char* const pszPort = std::getenv("KVHTTP_TLS_PORT");
    EXPECT_NE(pszPort, nullptr) << "these tests are run by window_run.py";
    return L"https://localhost:" + std::to_wstring(pszPort != nullptr ? std::atoi(pszPort) : 0) + L"/form";
}

TEST(DialogWindowTest, OpensOverTheWindowAndHasToBeAnswered)
{
    const CSampleWindow sample({L"--url", TlsUrl(), L"--data", L"a=1"});
    sample.Click(ID_POST);
    ASSERT_TRUE(sample.Await([&] { return sample.FindDialog() != nullptr; }));
    const HWND hDialog = sample.FindDialog();
    EXPECT_EQ(GetWindow(hDialog, GW_OWNER), sample.Handle());
    EXPECT_FALSE(IsWindowEnabled(sample.Handle()));
    // Closing would wait for an answer to a dialog that nobody sees any more.
    sample.Close();
    EXPECT_TRUE(sample.IsResponsive());
    EXPECT_TRUE(IsWindowVisible(hDialog));
    EXPECT_TRUE(sample.Text(ID_STATUS).starts_with(L"REQ_STATUS_SENDING"));

    PostMessageW(hDialog, WM_COMMAND, IDOK, 0);
    ASSERT_TRUE(sample.AwaitStatus(L"REQ_STATUS_DONE"));
    EXPECT_EQ(sample.Text(ID_ANSWER), L"answer");
    EXPECT_TRUE(IsWindowEnabled(sample.Handle()));
}

TEST(DialogWindowTest, CancelledIsNotConnected)
{
    const CSampleWindow sample({L"--url", TlsUrl(), L"--data", L"a=1"});
    sample.Click(ID_POST);
    ASSERT_TRUE(sample.Await([&] { return sample.FindDialog() != nullptr; }));
    PostMessageW(sample.FindDialog(), WM_COMMAND, IDCANCEL, 0);
    EXPECT_TRUE(sample.AwaitStatus(L"REQ_STATUS_NOT_CONNECTED"));
    EXPECT_TRUE(sample.IsEnabled(ID_POST));
}

}  // namespace
