#include <algorithm>
#include <climits>
#include <cwchar>
#include <cwctype>

#include "base/StringEx.h"

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

int AtLeastOne(int length)
{
    return std::max(1, length);
}

int NarrowLength(const char* text)
{
    return text != nullptr ? AtLeastOne(lstrlenA(text)) : kNullTextLength;
}

int WideLength(const wchar_t* text)
{
    return text != nullptr ? AtLeastOne(lstrlenW(text)) : kNullTextLength;
}

// Walks a format and its arguments side by side and adds up how long the text can become.
class CFormatEstimate
{
public:
    // Ends up behind the arguments that the format names.
    CFormatEstimate(const wchar_t* format, va_list list) : m_p(format) { va_copy(m_args, list); }
    ~CFormatEstimate() { va_end(m_args); }
    CFormatEstimate(const CFormatEstimate&) = delete;
    CFormatEstimate& operator=(const CFormatEstimate&) = delete;

    int Total()
    {
        int total = 0;
        while (*m_p != L'\0')
        {
            if (*m_p != L'%' || *++m_p == L'%')
            {
                total = AddWrapping(total, 1);
                ++m_p;
                continue;
            }
            total = AddWrapping(total, Conversion());
        }
        return AddWrapping(total, 4);
    }

private:
    // One conversion, from behind its percent sign.
    int Conversion()
    {
        m_width = 0;
        m_precision = 0;
        const int prefix = Flags();
        Precision();
        const Modifier modifier = Size();
        const wchar_t type = *m_p;
        if (type != L'\0')
        {
            ++m_p;
        }
        return AddWrapping(prefix, IsText(type) ? TextItem(type, modifier) : NumberItem(type, modifier));
    }

    // Flags and width; returns what the flags add to the text.
    int Flags()
    {
        int prefix = 0;
        bool bWidthGiven = false;
        for (;; ++m_p)
        {
            if (*m_p == L'#')
            {
                prefix += 2;
            }
            else if (*m_p == L'*')
            {
                m_width = va_arg(m_args, int);
                bWidthGiven = true;
            }
            else if (*m_p == L'\0' || std::wcschr(L"-+0 ", *m_p) == nullptr)
            {
                break;
            }
        }
        if (!bWidthGiven)
        {
            m_width = Number();
        }
        return prefix;
    }

    void Precision()
    {
        if (*m_p != L'.')
        {
            return;
        }
        ++m_p;
        if (*m_p == L'*')
        {
            ++m_p;
            m_precision = va_arg(m_args, int);
        }
        else
        {
            m_precision = Number();
        }
    }

    int Number()
    {
        const int number = _wtoi(m_p);
        m_p = SkipDigits(m_p);
        return number;
    }

    Modifier Size()
    {
        if (std::wcsncmp(m_p, L"I64", 3) == 0)
        {
            m_p += 3;
            return Modifier::int64;
        }
        switch (*m_p)
        {
            case L'h':
                ++m_p;
                return Modifier::narrow;
            case L'l':
                ++m_p;
                return Modifier::wide;
            case L'F':
            case L'L':
            case L'N':
                ++m_p;
                return Modifier::none;
            default:
                return Modifier::none;
        }
    }

    static bool IsText(wchar_t type) { return type == L'c' || type == L'C' || type == L's' || type == L'S'; }

    int TextItem(wchar_t type, Modifier modifier)
    {
        int length = 2;
        if (type == L'c' || type == L'C')
        {
            static_cast<void>(va_arg(m_args, int));
        }
        else if (modifier == Modifier::narrow || (type == L'S' && modifier != Modifier::wide))
        {
            length = NarrowLength(va_arg(m_args, const char*));
        }
        else
        {
            length = WideLength(va_arg(m_args, const wchar_t*));
        }
        if (m_precision != 0)
        {
            length = std::min(length, m_precision);
        }
        return std::max(length, m_width);
    }

    int NumberItem(wchar_t type, Modifier modifier)
    {
        const int field = AddWrapping(m_width, m_precision);
        switch (type)
        {
            case L'd':
            case L'i':
            case L'u':
            case L'x':
            case L'X':
            case L'o':
                SkipInteger(modifier);
                return std::max(32, field);
            case L'e':
            case L'g':
            case L'G':
                static_cast<void>(va_arg(m_args, double));
                return std::max(128, field);
            case L'f':
                static_cast<void>(va_arg(m_args, double));
                return std::max(128, AddWrapping(m_precision, 312));
            case L'p':
                static_cast<void>(va_arg(m_args, void*));
                return std::max(32, field);
            case L'n':
                static_cast<void>(va_arg(m_args, void*));
                return 0;
            default:
                return 0;
        }
    }

    void SkipInteger(Modifier modifier)
    {
        // NOLINTNEXTLINE(bugprone-branch-clone): the two types differ in width
        if (modifier == Modifier::int64)
        {
            static_cast<void>(va_arg(m_args, long long));
        }
        else
        {
            static_cast<void>(va_arg(m_args, int));
        }
    }

    const wchar_t* m_p;
    va_list m_args{};
    int m_width = 0;
    int m_precision = 0;
};

}  // namespace

void CStringEx::Format(const wchar_t* format, ...)
{
    va_list args;
    va_start(args, format);
    const int estimate = GetFormatLength(format, args);
    // GetBuffer keeps a block that has just as many characters as are asked for, terminator included.
    const bool bKeepsBlock = m_pszData != nullptr && estimate == GetLength() + 1;
    wchar_t* buffer = estimate > 0 ? GetBuffer(estimate) : nullptr;
    if (buffer != nullptr)
    {
        const size_t cch = static_cast<size_t>(estimate) + (bKeepsBlock ? 0 : 1);
        if (cch <= INT_MAX)
        {
            // The last one is ended here, whatever is said: a runtime that cuts off a padded field may not
            // tell.
            _vsnwprintf(buffer, cch - 1, format, args);
            buffer[cch - 1] = L'\0';
        }
        ReleaseBuffer();
    }
    va_end(args);
}

int CStringEx::GetFormatLength(const wchar_t* format, va_list list)
{
    return CFormatEstimate(format, list).Total();
}
