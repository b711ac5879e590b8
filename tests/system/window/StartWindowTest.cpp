// How the sample starts where something is wrong.
#include <gmock/gmock.h>

#include "system/window/SampleWindow.h"

namespace
{

// The text of the box with which the sample ends, which is then closed.
std::wstring TakeRefusal(const CSampleWindow& sample, DWORD dwExitCode)
{
    std::wstring text;
    for (const HWND hChild : CSampleWindow::ChildrenOf(sample.Handle()))
    {
        text += CSampleWindow::TextOf(hChild) + L"\n";
    }
    PostMessageW(sample.Handle(), WM_COMMAND, IDOK, 0);
    EXPECT_EQ(sample.AwaitExit(), dwExitCode);
    return text;
}

TEST(StartWindowTest, ACommandLineWithoutSenseIsRefused)
{
    const std::vector<std::wstring> lines[] = {{L"--nonsense", L"x"}, {L"--url"}, {L"http://127.0.0.1/"}};
    for (const std::vector<std::wstring>& line : lines)
    {
        const CSampleWindow sample(line);
        EXPECT_NE(TakeRefusal(sample, 2).find(L"[--url URL] [--data DATA]"), std::wstring::npos);
    }
}

// Runs before the module is registered.
TEST(UnregisteredWindowTest, SaysHowToRegisterTheModule)
{
    const CSampleWindow sample({});
    const std::wstring text = TakeRefusal(sample, 3);
    EXPECT_NE(text.find(L"regsvr32 kvHttp.dll"), std::wstring::npos);
    EXPECT_NE(text.find(L"0x80040154"), std::wstring::npos);  // not registered
}

}  // namespace
