// Percent-encoding, beside an encoder that goes through code points.
#include <cstdint>
#include <string>

#include "base/UrlEncoding.h"
#include "fuzz/Choices.h"
#include "fuzz/FuzzTarget.h"

namespace
{

bool IsHighHalf(wchar_t ch)
{
    return ch >= 0xD800 && ch <= 0xDBFF;
}

bool IsLowHalf(wchar_t ch)
{
    return ch >= 0xDC00 && ch <= 0xDFFF;
}

void AppendByte(std::wstring& encoded, std::uint32_t byte)
{
    constexpr wchar_t kDigits[] = L"0123456789ABCDEF";
    encoded += L'%';
    encoded += kDigits[byte / 16];
    encoded += kDigits[byte % 16];
}

void AppendCodePoint(std::wstring& encoded, std::uint32_t code)
{
    if (code < 0x80)
    {
        AppendByte(encoded, code);
        return;
    }
    const int following = code < 0x800 ? 1 : code < 0x10000 ? 2 : 3;
    constexpr std::uint32_t kLead[] = {0, 0xC0, 0xE0, 0xF0};
    AppendByte(encoded, kLead[following] | code >> (6 * following));
    for (int index = following - 1; index >= 0; --index)
    {
        AppendByte(encoded, 0x80 | (code >> (6 * index) & 0x3F));
    }
}

std::wstring Model(const std::wstring& text)
{
    std::wstring encoded;
    for (size_t index = 0; index < text.size(); ++index)
    {
        const wchar_t ch = text[index];
        if (IsHighHalf(ch) && index + 1 < text.size() && IsLowHalf(text[index + 1]))
        {
            ++index;
            AppendCodePoint(encoded, 0x10000 + ((ch - 0xD800u) << 10) + (text[index] - 0xDC00u));
            continue;
        }
        // Half a character becomes the replacement character.
        AppendCodePoint(encoded, IsHighHalf(ch) || IsLowHalf(ch) ? 0xFFFDu : ch);
    }
    return encoded;
}

wchar_t Character(CChoices& choices)
{
    switch (choices.Between(0, 4))
    {
        case 0:
            return static_cast<wchar_t>(choices.Between(0x80, 0x7FF));
        case 1:
            return static_cast<wchar_t>(choices.Between(0x800, 0xFFFF));
        case 2:
            return static_cast<wchar_t>(choices.Between(0xD800, 0xDFFF));
        default:
            return static_cast<wchar_t>(choices.Between(1, 0x7F));
    }
}

}  // namespace

std::string CheckEncoding(std::string_view input)
{
    CChoices choices(input);
    std::wstring text;
    while (!choices.AtEnd())
    {
        text += Character(choices);
    }
    if (choices.OneIn(50))
    {
        text.append(3000, text.empty() ? L'x' : text[0]);
    }
    CStringEx str(text.c_str());
    if (!EncodeURL(str))
    {
        return "EncodeURL failed for " + Shown(text);
    }
    const std::wstring got = str.c_str();
    if (got != Model(text))
    {
        return Difference(Shown(text), Shown(Model(text)), Shown(got));
    }
    // The lock is released: the text can be written again.
    return str.GetBuffer(1) != nullptr ? "" : "the text is still locked";
}
