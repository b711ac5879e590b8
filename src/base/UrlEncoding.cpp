#include "base/UrlEncoding.h"

#include <array>
#include <climits>
#include <cstring>
#include <memory>

#include "base/TextConversion.h"

namespace
{

constexpr size_t kEncodedLength = 3;

// Each byte as it is written, and a place more, so that one instruction writes it.
constexpr auto kEncodedBytes = []
{
    constexpr wchar_t kHexDigits[] = L"0123456789ABCDEF";
    std::array<std::array<wchar_t, kEncodedLength + 1>, 256> all = {};
    for (size_t octet = 0; octet < all.size(); ++octet)
    {
        all[octet] = {L'%', kHexDigits[octet >> 4], kHexDigits[octet & 0xF]};
    }
    return all;
}();

}  // namespace

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
    const char* const end = utf8.get() + cb;
    for (const char* from = utf8.get(); from + 1 < end; ++from, to += kEncodedLength)
    {
        const auto& encoded = kEncodedBytes[static_cast<unsigned char>(*from)];
        std::memcpy(to, encoded.data(), sizeof(encoded));
    }
    *to = L'\0';
    text.ReleaseBuffer();
    return cb > 0;
}
