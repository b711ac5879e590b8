// Random texts, encoded and compared with an encoder written for the test.
#include <gtest/gtest.h>

#include <cstdint>
#include <cwchar>
#include <string>

#include "base/UrlEncoding.h"
#include "fuzz/SeededRandom.h"
#include "support/guarded_heap/GuardedHeap.h"

namespace
{

constexpr std::uint32_t kReplacement = 0xFFFD;

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
    wchar_t buffer[8] = {};
    std::swprintf(buffer, std::size(buffer), L"%%%02X", byte);
    encoded += buffer;
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

std::wstring Expected(const std::wstring& text)
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
        AppendCodePoint(encoded, IsHighHalf(ch) || IsLowHalf(ch) ? kReplacement : ch);
    }
    return encoded;
}

wchar_t RandomCharacter(CSeededRandom& random)
{
    switch (random.Between(0, 4))
    {
        case 0:
            return static_cast<wchar_t>(random.Between(0x80, 0x7FF));
        case 1:
            return static_cast<wchar_t>(random.Between(0x800, 0xFFFF));
        case 2:
            return static_cast<wchar_t>(random.Between(0xD800, 0xDFFF));
        default:
            return static_cast<wchar_t>(random.Between(1, 0x7F));
    }
}

TEST(UrlEncodingFuzzTest, AgreesWithAnotherEncoderOnRandomTexts)
{
    CSeededRandom random;
    const CTimeLimit limit(std::chrono::milliseconds(1500));
    const size_t liveBefore = CGuardedHeap::LiveArrays();
    for (int step = 0; step < 2'000 && !limit.IsOver(); ++step)
    {
        std::wstring text(static_cast<size_t>(random.Between(0, step % 100 == 0 ? 3000 : 40)), L'\0');
        for (wchar_t& ch : text)
        {
            ch = RandomCharacter(random);
        }
        CStringEx str(text.c_str());
        ASSERT_TRUE(EncodeURL(str)) << "seed " << random.Seed() << ", step " << step;
        ASSERT_EQ(std::wstring(str.c_str()), Expected(text)) << "seed " << random.Seed() << ", step " << step;
    }
    EXPECT_EQ(CGuardedHeap::LiveArrays(), liveBefore) << "seed " << random.Seed();
}

}  // namespace
