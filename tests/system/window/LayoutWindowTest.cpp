// The sample's window at all sizes: nothing covered, cut off or out of order, and the keyboard leads to
// everything.
#include <gmock/gmock.h>

#include <algorithm>
#include <map>

#include "kvHttp/Outcome.h"
#include "PostFormWindow/StatusText.h"
#include "system/window/SampleWindow.h"

namespace
{

constexpr SIZE kSmallest = {1, 1};
constexpr SIZE kLarge = {1000, 740};

// All the sample's own texts are plain.
std::string Quoted(const std::wstring& text)
{
    std::string quoted = "\"";
    for (const wchar_t character : text)
    {
        quoted += static_cast<char>(character);
    }
    return quoted + "\"";
}

std::string NameOfControl(HWND hControl)
{
    return "control " + std::to_string(GetDlgCtrlID(hControl)) + " " +
           Quoted(CSampleWindow::TextOf(hControl));
}

// In the coordinates of the window's client area.
RECT Place(HWND hControl)
{
    RECT rect = {};
    GetWindowRect(hControl, &rect);
    MapWindowPoints(nullptr, GetParent(hControl), reinterpret_cast<POINT*>(&rect), 2);
    return rect;
}

// The font that the controls should have, of this process's own.
class CSystemFont
{
public:
    CSystemFont()
    {
        NONCLIENTMETRICSW metrics = {};
        metrics.cbSize = sizeof(metrics);
        SystemParametersInfoW(SPI_GETNONCLIENTMETRICS, metrics.cbSize, &metrics, 0);
        m_hFont = CreateFontIndirectW(&metrics.lfMessageFont);
        m_hPrevious = SelectObject(m_hContext, m_hFont);
    }
    ~CSystemFont()
    {
        SelectObject(m_hContext, m_hPrevious);
        DeleteObject(m_hFont);
        DeleteDC(m_hContext);
    }
    CSystemFont(const CSystemFont&) = delete;
    CSystemFont& operator=(const CSystemFont&) = delete;

    // Of the text on lines of that width.
    SIZE Measure(const std::wstring& text, int width, UINT format) const
    {
        RECT rect = {0, 0, width, 0};
        DrawTextW(m_hContext, text.c_str(), -1, &rect, DT_CALCRECT | DT_WORDBREAK | format);
        return {rect.right, rect.bottom};
    }

private:
    HDC m_hContext = CreateCompatibleDC(nullptr);
    HFONT m_hFont = nullptr;
    HGDIOBJ m_hPrevious = nullptr;
};

void Resize(const CSampleWindow& sample, SIZE size)
{
    SetWindowPos(sample.Handle(), nullptr, 0, 0, size.cx, size.cy, SWP_NOZORDER | SWP_NOMOVE);
    EXPECT_TRUE(sample.IsResponsive());
}

void ExpectAllInsideAndApart(const CSampleWindow& sample, const std::string& label)
{
    SCOPED_TRACE(label);
    RECT client = {};
    GetClientRect(sample.Handle(), &client);
    const std::vector<HWND> controls = CSampleWindow::ChildrenOf(sample.Handle());
    EXPECT_EQ(controls.size(), 20u);
    for (auto one = controls.begin(); one != controls.end(); ++one)
    {
        const RECT place = Place(*one);
        EXPECT_TRUE(place.left > 0 && place.top > 0 && place.right < client.right &&
                    place.bottom < client.bottom)
            << NameOfControl(*one) << " is not inside";
        EXPECT_TRUE(place.right - place.left > 10 && place.bottom - place.top > 7)
            << NameOfControl(*one) << " is too small";
        for (auto other = one + 1; other != controls.end(); ++other)
        {
            const RECT otherPlace = Place(*other);
            RECT common = {};
            EXPECT_FALSE(IntersectRect(&common, &place, &otherPlace))
                << NameOfControl(*one) << " and " << NameOfControl(*other);
        }
    }
}

void ExpectFits(HWND hControl, const std::wstring& text, UINT format = 0)
{
    const CSystemFont font;
    const RECT place = Place(hControl);
    const SIZE size = font.Measure(text, place.right - place.left, format);
    EXPECT_TRUE(size.cx <= place.right - place.left && size.cy <= place.bottom - place.top)
        << NameOfControl(hControl) << " has no room for " << Quoted(text) << ": " << size.cx << " x "
        << size.cy << " in " << place.right - place.left << " x " << place.bottom - place.top;
}

void ExpectAllTextsFit(const CSampleWindow& sample, const std::string& label)
{
    SCOPED_TRACE(label);
    for (const int id : {ID_URL_LABEL, ID_DATA_LABEL, ID_FILE_LABEL, ID_BROWSE, ID_TIMEOUT_LABEL, ID_SECONDS,
                         ID_POST, ID_STOP, ID_STATUS_LABEL, ID_PROGRESS_LABEL, ID_ANSWER_LABEL})
    {
        ExpectFits(sample.Control(id), sample.Text(id));
    }
    for (const unsigned long status : {0ul, 1ul, 2ul, 3ul, 5ul, 6ul, 7ul, 9ul})
    {
        ExpectFits(sample.Control(ID_MEANING), MeaningOf(status), DT_NOPREFIX);
        ExpectFits(sample.Control(ID_STATUS), NameOf(status) + std::wstring(L", 86400.0 s"));
    }
    for (const wchar_t* const pszText :
         {Describe(kvHttp::Outcome::FileNotWritable), Describe(kvHttp::Outcome::NoMemory), kDoneInFileText,
          kStoppingText, kStoppedText})
    {
        ExpectFits(sample.Control(ID_MEANING), pszText, DT_NOPREFIX);
    }
    ExpectFits(sample.Control(ID_BYTES), L"88.88 MB so far");
}

TEST(LayoutWindowTest, NothingIsCoveredOrCutOffAtAnySize)
{
    const CSampleWindow sample({});
    ExpectAllInsideAndApart(sample, "as it starts");
    ExpectAllTextsFit(sample, "as it starts");
    Resize(sample, kLarge);
    ExpectAllInsideAndApart(sample, "large");
    ExpectAllTextsFit(sample, "large");
    Resize(sample, kSmallest);
    ExpectAllInsideAndApart(sample, "as small as it lets itself be made");
    ExpectAllTextsFit(sample, "as small as it lets itself be made");
}

TEST(LayoutWindowTest, TheAnswerGetsTheRoom)
{
    const CSampleWindow sample({});
    RECT window = {};
    GetWindowRect(sample.Handle(), &window);
    std::map<int, RECT> before;
    for (const HWND hControl : CSampleWindow::ChildrenOf(sample.Handle()))
    {
        before[GetDlgCtrlID(hControl)] = Place(hControl);
    }
    Resize(sample, {window.right - window.left + 100, window.bottom - window.top + 80});
    for (const auto& [id, place] : before)
    {
        const RECT now = Place(sample.Control(id));
        EXPECT_EQ(now.top, place.top) << id;
        EXPECT_EQ(now.bottom - place.bottom, id == ID_ANSWER ? 80 : 0) << id;
    }
    EXPECT_EQ(Place(sample.Control(ID_ANSWER)).right, before[ID_ANSWER].right + 100);
    EXPECT_EQ(Place(sample.Control(ID_URL)).right, before[ID_URL].right + 100);
    EXPECT_EQ(Place(sample.Control(ID_STOP)).left, before[ID_STOP].left + 100);
    // The right edges stand in one line.
    for (const int id : {ID_URL, ID_DATA, ID_BROWSE, ID_STOP, ID_ANSWER})
    {
        EXPECT_EQ(Place(sample.Control(id)).right, before[ID_URL].right + 100) << id;
    }
}

int HeightOf(const CSampleWindow& sample, int id)
{
    const RECT place = Place(sample.Control(id));
    return place.bottom - place.top;
}

TEST(LayoutWindowTest, GrowsAndShrinksWithTheResolutionOfItsScreen)
{
    const CSampleWindow sample({});
    const HDC hScreen = GetDC(nullptr);
    const int dpi = GetDeviceCaps(hScreen, LOGPIXELSY);
    ReleaseDC(nullptr, hScreen);
    RECT before = {};
    GetWindowRect(sample.Handle(), &before);
    const int fieldBefore = HeightOf(sample, ID_URL);

    // No larger: the window would not fit the desktop of the tests.
    const RECT place = {0, 0, 3 * (before.right - before.left) / 2, 3 * (before.bottom - before.top) / 2};
    sample.MoveToScreen(3 * dpi / 2, place);
    RECT now = {};
    GetWindowRect(sample.Handle(), &now);
    EXPECT_TRUE(EqualRect(&now, &place)) << now.right - now.left << " x " << now.bottom - now.top;
    EXPECT_NEAR(HeightOf(sample, ID_URL), 3 * fieldBefore / 2, 2);
    ExpectAllInsideAndApart(sample, "at a higher resolution");
    Resize(sample, kSmallest);
    ExpectAllInsideAndApart(sample, "as small as it lets itself be made there");

    sample.MoveToScreen(dpi, before);
    GetWindowRect(sample.Handle(), &now);
    EXPECT_TRUE(EqualRect(&now, &before)) << now.right - now.left << " x " << now.bottom - now.top;
    EXPECT_EQ(HeightOf(sample, ID_URL), fieldBefore);
}

TEST(LayoutWindowTest, TheTabOrderIsTheOrderOnTheScreen)
{
    const CSampleWindow sample({});
    std::vector<int> order = {sample.Focus()};
    for (int turn = 0; turn < 7; ++turn)
    {
        const int last = order.back();
        sample.PressKey(VK_TAB);
        EXPECT_TRUE(sample.Await([&] { return sample.Focus() != last; })) << "the focus stays at " << last;
        order.push_back(sample.Focus());
    }
    EXPECT_THAT(order, testing::ElementsAre(ID_URL, ID_DATA, ID_FILE, ID_BROWSE, ID_TIMEOUT, ID_POST,
                                            ID_ANSWER, ID_URL));
    // Row by row, each from left to right; controls of one row overlap in height.
    for (size_t index = 0; index + 2 < order.size(); ++index)
    {
        const RECT one = Place(sample.Control(order[index]));
        const RECT next = Place(sample.Control(order[index + 1]));
        EXPECT_TRUE(one.bottom <= next.top || (one.top < next.bottom && one.right <= next.left))
            << order[index] << " stands behind " << order[index + 1];
    }
}

TEST(LayoutWindowTest, AccessKeysLeadToTheirFields)
{
    const CSampleWindow sample({});
    const std::pair<wchar_t, int> keys[] = {
        {L'd', ID_DATA}, {L'f', ID_FILE}, {L't', ID_TIMEOUT}, {L'a', ID_ANSWER}, {L'u', ID_URL}};
    for (const auto& [letter, id] : keys)
    {
        sample.PressAccessKey(letter);
        EXPECT_TRUE(sample.Await([&sample, id = id] { return sample.Focus() == id; })) << char(letter);
    }
}

TEST(LayoutWindowTest, TheAnswerCanOnlyBeReadAndScrolls)
{
    const CSampleWindow sample({});
    const LONG style = GetWindowLongW(sample.Control(ID_ANSWER), GWL_STYLE);
    EXPECT_EQ(style & (ES_READONLY | ES_MULTILINE | WS_VSCROLL), ES_READONLY | ES_MULTILINE | WS_VSCROLL);
    EXPECT_GE(SendMessageW(sample.Control(ID_ANSWER), EM_GETLIMITTEXT, 0, 0), 0x7FFFFFFE);
    EXPECT_NE(GetWindowLongW(sample.Control(ID_TIMEOUT), GWL_STYLE) & ES_NUMBER, 0);
}

}  // namespace
