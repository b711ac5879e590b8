#include <algorithm>
#include <cwchar>
#include <cwctype>

#include "base/StringEx.h"

#define STRSAFE_NO_DEPRECATE
#include <strsafe.h>

namespace
{

constexpr int kNullTextLength = 6;  // "(null)"

enum class Modifier
{
    none,
    int64,
    narrow,
    wide
};

// One conversion of a format, from behind its percent sign.
struct Conversion
{
    int width = 0;
    int precision = 0;
    int prefixLength = 0;
    Modifier modifier = Modifier::none;
};

// Sums that run over are left to wrap: the caller takes a result of 0 or less for "no estimate".
int AddWrapping(int a, int b)
{
    return static_cast<int>(static_cast<unsigned>(a) + static_cast<unsigned>(b));
}

const wchar_t* SkipDigits(const wchar_t* p)
{
    while (std::iswdigit(*p))
    {
        ++p;
    }
    return p;
}

int TextLength(int length)
{
    return std::max(1, length);
}

int NarrowLength(const char* text)
{
    return text != nullptr ? TextLength(lstrlenA(text)) : kNullTextLength;
}

int WideLength(const wchar_t* text)
{
    return text != nullptr ? TextLength(lstrlenW(text)) : kNullTextLength;
}

}  // namespace

void CStringEx::Format(const wchar_t* format, ...)
{
    va_list args;
    va_start(args, format);
    const int estimate = GetFormatLength(format, args);
    if (estimate > 0)
    {
        wchar_t* buffer = GetBuffer(estimate);
        if (buffer != nullptr)
        {
            const size_t cch = static_cast<size_t>(estimate) + 1;
            if (cch <= STRSAFE_MAX_CCH)
            {
                StringCchVPrintfW(buffer, cch, format, args);
            }
            ReleaseBuffer();
        }
    }
    va_end(args);
}

int CStringEx::GetFormatLength(const wchar_t* format, va_list list)
{
    va_list args;
    va_copy(args, list);
    int total = 0;
    for (const wchar_t* p = format; *p != L'\0';)
    {
        if (*p != L'%' || *++p == L'%')
        {
            ++total;
            ++p;
            continue;
        }

        Conversion item;
        bool widthGiven = false;
        for (bool inFlags = true; inFlags;)
        {
            switch (*p)
            {
                case L'#':
                    item.prefixLength += 2;
                    ++p;
                    break;
                case L'*':
                    item.width = va_arg(args, int);
                    widthGiven = true;
                    ++p;
                    break;
                case L'-':
                case L'+':
                case L'0':
                case L' ':
                    ++p;
                    break;
                default:
                    inFlags = false;
            }
        }
        if (!widthGiven)
        {
            item.width = _wtoi(p);
            p = SkipDigits(p);
        }
        if (*p == L'.')
        {
            ++p;
            if (*p == L'*')
            {
                item.precision = va_arg(args, int);
                ++p;
            }
            else
            {
                item.precision = _wtoi(p);
                p = SkipDigits(p);
            }
        }
        if (std::wcsncmp(p, L"I64", 3) == 0)
        {
            item.modifier = Modifier::int64;
            p += 3;
        }
        else if (*p == L'h' || *p == L'l')
        {
            item.modifier = *p == L'h' ? Modifier::narrow : Modifier::wide;
            ++p;
        }
        else if (*p == L'F' || *p == L'L' || *p == L'N')
        {
            ++p;
        }

        int length = 0;
        bool isText = true;
        switch (*p)
        {
            case L'c':
            case L'C':
                length = 2;
                static_cast<void>(va_arg(args, int));
                break;
            case L's':
            case L'S':
                if (item.modifier == Modifier::narrow || (*p == L'S' && item.modifier != Modifier::wide))
                {
                    length = NarrowLength(va_arg(args, const char*));
                }
                else
                {
                    length = WideLength(va_arg(args, const wchar_t*));
                }
                break;
            default:
                isText = false;
        }
        if (isText)
        {
            if (item.precision != 0)
            {
                length = std::min(length, item.precision);
            }
            length = std::max(length, item.width);
        }
        else
        {
            const int field = AddWrapping(item.width, item.precision);
            switch (*p)
            {
                case L'd':
                case L'i':
                case L'u':
                case L'x':
                case L'X':
                case L'o':
                    if (item.modifier == Modifier::int64)
                    {
                        static_cast<void>(va_arg(args, long long));
                    }
                    else
                    {
                        static_cast<void>(va_arg(args, int));
                    }
                    length = std::max(32, field);
                    break;
                case L'e':
                case L'g':
                case L'G':
                    static_cast<void>(va_arg(args, double));
                    length = std::max(128, field);
                    break;
                case L'f':
                    static_cast<void>(va_arg(args, double));
                    length = std::max(128, AddWrapping(item.precision, 312));
                    break;
                case L'p':
                    static_cast<void>(va_arg(args, void*));
                    length = std::max(32, field);
                    break;
                case L'n':
                    static_cast<void>(va_arg(args, void*));
                    break;
                default:
                    break;
            }
        }
        total = AddWrapping(total, AddWrapping(item.prefixLength, length));
        if (*p != L'\0')
        {
            ++p;
        }
    }
    va_end(args);
    return AddWrapping(total, 4);
}
