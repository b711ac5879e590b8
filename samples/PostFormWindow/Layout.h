// Where the controls stand, in dialog units: they follow the font, and so the resolution of the screen.
#pragma once

#include <windows.h>

// The resolution that the platform's own sizes are for, whichever screen a window is on.
int SystemDpi();

class CLayout
{
public:
    // dpi: the resolution of the screen that the window is on.
    CLayout(HWND hWnd, HFONT hFont, int dpi);

    // Fills the window's client area; what there is more of goes to the answer.
    void Arrange() const;

    // Of the whole window, with its frame.
    SIZE MinimumSize() const;
    SIZE DefaultSize() const;

private:
    int X(int units) const { return MulDiv(units, m_charWidth, 4); }
    int Y(int units) const { return MulDiv(units, m_charHeight, 8); }
    SIZE WindowSize(SIZE client) const;  // from dialog units
    void Place(int id, int x, int y, int width, int height) const;
    void PlaceLabel(int id, int y) const;
    void PlaceFields(int width, int& y) const;
    void PlaceButtons(int width, int y) const;
    void PlaceStatus(int width, int& y) const;

    HWND m_hWnd;
    int m_dpi;
    int m_charWidth = 0;  // the average
    int m_charHeight = 0;
    int m_labelWidth = 0;  // the longest of those beside a field
};
