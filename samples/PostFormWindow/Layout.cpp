#include "Layout.h"

#include <algorithm>

#include "Controls.h"

namespace
{

// Dialog units: the platform's recommended sizes.
constexpr int kMargin = 7;
constexpr int kGap = 4;      // between controls that belong together
constexpr int kWideGap = 8;  // between groups
constexpr int kText = 8;     // the height of a line of text
constexpr int kField = 12;
constexpr int kLabelDrop = 2;  // puts a label's text on the line of its field's
constexpr int kDataLines = 30;
constexpr int kButton = 50;
constexpr int kButtonHeight = 14;
constexpr int kBrowse = 16;
constexpr int kTimeout = 30;
constexpr int kSeconds = 50;
constexpr int kMeaning = 2 * kText + 1;
constexpr int kBar = 10;
constexpr int kBytes = 70;

constexpr SIZE kMinimum = {280, 190};
constexpr SIZE kDefault = {310, 230};

constexpr int kFieldLabels[] = {ID_URL_LABEL,     ID_DATA_LABEL,   ID_FILE_LABEL,
                                ID_TIMEOUT_LABEL, ID_STATUS_LABEL, ID_PROGRESS_LABEL};

// With a font selected for measuring.
class CMeasuringContext
{
public:
    CMeasuringContext(HWND hWnd, HFONT hFont)
        : m_hWnd(hWnd), m_hContext(GetDC(hWnd)), m_hPrevious(SelectObject(m_hContext, hFont))
    {
    }
    ~CMeasuringContext()
    {
        SelectObject(m_hContext, m_hPrevious);
        ReleaseDC(m_hWnd, m_hContext);
    }
    CMeasuringContext(const CMeasuringContext&) = delete;
    CMeasuringContext& operator=(const CMeasuringContext&) = delete;

    // Without the mark of the access key.
    SIZE Measure(const std::wstring& text) const
    {
        RECT rect = {};
        DrawTextW(m_hContext, text.c_str(), -1, &rect, DT_CALCRECT | DT_SINGLELINE);
        return {rect.right, rect.bottom};
    }

private:
    HWND m_hWnd;
    HDC m_hContext;
    HGDIOBJ m_hPrevious;
};

}  // namespace

int SystemDpi()
{
    const HDC hScreen = GetDC(nullptr);
    const int dpi = GetDeviceCaps(hScreen, LOGPIXELSY);
    ReleaseDC(nullptr, hScreen);
    return dpi;
}

CLayout::CLayout(HWND hWnd, HFONT hFont, int dpi) : m_hWnd(hWnd), m_dpi(dpi)
{
    const CMeasuringContext context(hWnd, hFont);
    const std::wstring alphabet = L"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
    const SIZE size = context.Measure(alphabet);
    const int count = static_cast<int>(alphabet.size());
    m_charWidth = (size.cx + count / 2) / count;
    m_charHeight = size.cy;
    for (const int id : kFieldLabels)
    {
        const std::wstring text = GetControlText(hWnd, static_cast<ControlId>(id));
        m_labelWidth = std::max<int>(m_labelWidth, context.Measure(text).cx);
    }
}

void CLayout::Arrange() const
{
    RECT client = {};
    GetClientRect(m_hWnd, &client);
    const int width = client.right - 2 * X(kMargin);
    int y = Y(kMargin);
    PlaceFields(width, y);
    PlaceButtons(width, y);
    y += Y(kField + kWideGap);
    PlaceStatus(width, y);
    Place(ID_ANSWER_LABEL, 0, y, width, Y(kText));
    y += Y(kText + kGap / 2);
    Place(ID_ANSWER, 0, y, width, client.bottom - Y(kMargin) - y);
    InvalidateRect(m_hWnd, nullptr, TRUE);
}

void CLayout::PlaceFields(int width, int& y) const
{
    const int x = m_labelWidth + X(kGap);
    PlaceLabel(ID_URL_LABEL, y);
    Place(ID_URL, x, y, width - x, Y(kField));
    y += Y(kField + kGap);
    PlaceLabel(ID_DATA_LABEL, y);
    Place(ID_DATA, x, y, width - x, Y(kDataLines));
    y += Y(kDataLines + kGap);
    PlaceLabel(ID_FILE_LABEL, y);
    const int browse = width - X(kBrowse);
    Place(ID_FILE, x, y, browse - X(kGap) - x, Y(kField));
    Place(ID_BROWSE, browse, y, X(kBrowse), Y(kField));
    y += Y(kField + kGap);
}

void CLayout::PlaceButtons(int width, int y) const
{
    const int x = m_labelWidth + X(kGap);
    PlaceLabel(ID_TIMEOUT_LABEL, y);
    Place(ID_TIMEOUT, x, y, X(kTimeout), Y(kField));
    Place(ID_SECONDS, x + X(kTimeout + kGap), y + Y(kLabelDrop), X(kSeconds), Y(kText));
    const int stop = width - X(kButton);
    const int top = y - Y(kButtonHeight - kField) / 2;
    Place(ID_POST, stop - X(kGap + kButton), top, X(kButton), Y(kButtonHeight));
    Place(ID_STOP, stop, top, X(kButton), Y(kButtonHeight));
}

void CLayout::PlaceStatus(int width, int& y) const
{
    const int x = m_labelWidth + X(kGap);
    Place(ID_STATUS_LABEL, 0, y, m_labelWidth, Y(kText));
    Place(ID_STATUS, x, y, width - x, Y(kText));
    y += Y(kText + kGap / 2);
    Place(ID_MEANING, x, y, width - x, Y(kMeaning));
    y += Y(kMeaning + kGap);
    const int drop = Y(kBar - kText) / 2;
    const int bytes = width - X(kBytes);
    Place(ID_PROGRESS_LABEL, 0, y + drop, m_labelWidth, Y(kText));
    Place(ID_PROGRESS, x, y, bytes - X(kGap) - x, Y(kBar));
    Place(ID_BYTES, bytes, y + drop, X(kBytes), Y(kText));
    y += Y(kBar + kWideGap);
}

void CLayout::PlaceLabel(int id, int y) const
{
    Place(id, 0, y + Y(kLabelDrop), m_labelWidth, Y(kText));
}

// x counts from the left margin.
void CLayout::Place(int id, int x, int y, int width, int height) const
{
    SetWindowPos(GetDlgItem(m_hWnd, id), nullptr, X(kMargin) + x, y, width, height,
                 SWP_NOZORDER | SWP_NOACTIVATE);
}

SIZE CLayout::MinimumSize() const
{
    return WindowSize(kMinimum);
}

SIZE CLayout::DefaultSize() const
{
    return WindowSize(kDefault);
}

SIZE CLayout::WindowSize(SIZE client) const
{
    RECT frame = {};
    AdjustWindowRectEx(&frame, static_cast<DWORD>(GetWindowLongPtrW(m_hWnd, GWL_STYLE)), FALSE,
                       static_cast<DWORD>(GetWindowLongPtrW(m_hWnd, GWL_EXSTYLE)));
    return {X(client.cx) + MulDiv(frame.right - frame.left, m_dpi, SystemDpi()),
            Y(client.cy) + MulDiv(frame.bottom - frame.top, m_dpi, SystemDpi())};
}
