#include "base/UrlEncoding.h"

#include <climits>
#include <memory>

#include "base/TextConversion.h"

bool EncodeURL(CStringEx& text)
{
    int cb = 0;
    const std::unique_ptr<char[]> utf8 = NarrowCopy(CP_UTF8, text, &cb);
    if (utf8 == nullptr)
    {
        return false;
    }
    text.Empty();
    const bool bFits = cb <= (INT_MAX - 6) / 3;
    wchar_t* to = bFits ? text.GetBuffer(3 * cb + 6) : nullptr;
    if (to == nullptr)
    {
        return false;
    }
    constexpr wchar_t kHexDigits[] = L"0123456789ABCDEF";
    const char* const end = utf8.get() + cb;
    for (const char* from = utf8.get(); from + 1 < end; ++from)
    {
        const unsigned octet = static_cast<unsigned char>(*from);
        *to++ = L'%';
        *to++ = kHexDigits[octet >> 4];
        *to++ = kHexDigits[octet & 0xF];
    }
    *to = L'\0';
    text.ReleaseBuffer();
    return cb > 0;
}
