#include "base/UrlEncoding.h"

#include <climits>
#include <cwchar>
#include <memory>
#include <new>

bool EncodeURL(CStringEx& text)
{
    const wchar_t* wide = text;
    const int cbNeeded = WideCharToMultiByte(CP_UTF8, 0, wide, -1, nullptr, 0, nullptr, nullptr);
    if (cbNeeded < 1 || cbNeeded > (INT_MAX - 6) / 3)
    {
        return false;
    }
    const size_t cbBlock = static_cast<size_t>(cbNeeded);
    const std::unique_ptr<char[]> utf8(new (std::nothrow) char[cbBlock]());
    if (utf8 == nullptr)
    {
        return false;
    }
    const int cb = WideCharToMultiByte(CP_UTF8, 0, wide, -1, utf8.get(), cbNeeded, nullptr, nullptr);

    text.Empty();
    const int cch = 3 * cb + 6;
    wchar_t* to = text.GetBuffer(cch);
    if (to == nullptr)
    {
        return false;
    }
    constexpr wchar_t kHexDigits[] = L"0123456789ABCDEF";
    for (const char* from = utf8.get(); *from != '\0'; ++from)
    {
        const unsigned byte = static_cast<unsigned char>(*from);
        *to++ = L'%';
        *to++ = kHexDigits[byte >> 4];
        *to++ = kHexDigits[byte & 0xF];
    }
    *to = L'\0';
    text.ReleaseBuffer();
    return cb > 0;
}
