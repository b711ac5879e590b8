#include "base/TextConversion.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <cwchar>
#include <string>

#include "support/guarded_heap/GuardedHeap.h"
#include "support/ImportPatch.h"

namespace
{

// What of a text the platform was asked to convert, the longest.
size_t g_cchAsked = 0;
decltype(&WideCharToMultiByte) g_pfnNarrow = nullptr;
decltype(&MultiByteToWideChar) g_pfnWiden = nullptr;

int WINAPI RecordingNarrow(UINT codePage, DWORD dwFlags, LPCWCH from, int cch, LPSTR to, int cb,
                           LPCCH fallback, LPBOOL pbUsed)
{
    g_cchAsked = std::max(g_cchAsked, std::wcslen(from));
    return g_pfnNarrow(codePage, dwFlags, from, cch, to, cb, fallback, pbUsed);
}

int WINAPI RecordingWiden(UINT codePage, DWORD dwFlags, LPCCH from, int cb, LPWSTR to, int cch)
{
    g_cchAsked = std::max(g_cchAsked, std::strlen(from));
    return g_pfnWiden(codePage, dwFlags, from, cb, to, cch);
}

class TextConversionTest : public testing::Test
{
protected:
    ~TextConversionTest() override { EXPECT_EQ(CGuardedHeap::LiveArrays(), m_liveAtStart); }

    const size_t m_liveAtStart = CGuardedHeap::LiveArrays();
};

TEST_F(TextConversionTest, NarrowsTextWithItsTerminatorIntoABlockOfThatSize)
{
    int cb = 0;
    const std::unique_ptr<char[]> copy = NarrowCopy(CP_UTF8, L"a\u00FC\u20AC", &cb);
    EXPECT_STREQ(copy.get(), "a\xC3\xBC\xE2\x82\xAC");
    EXPECT_EQ(cb, 7);
    EXPECT_EQ(CGuardedHeap::SizeOf(copy.get()), 7u);
    EXPECT_STREQ(NarrowCopy(CP_UTF8, L"").get(), "");
}

TEST_F(TextConversionTest, NarrowsNoNullText)
{
    int cb = 99;
    EXPECT_EQ(NarrowCopy(CP_ACP, nullptr, &cb), nullptr);
    EXPECT_EQ(cb, 0);
}

TEST_F(TextConversionTest, NarrowsNothingWithoutMemoryAndSaysWhatItWouldTake)
{
    for (int cch = 0; cch < 40; ++cch)
    {
        const std::wstring text(static_cast<size_t>(cch), L't');
        int cb = 0;
        std::unique_ptr<char[]> copy;
        {
            const CFailingHeap failing;
            copy = NarrowCopy(CP_UTF8, text.c_str(), &cb);
        }
        EXPECT_EQ(copy, nullptr);
        EXPECT_EQ(cb, cch + 1);
    }
}

TEST_F(TextConversionTest, WidensTextUpToItsTerminator)
{
    int cch = 0;
    const std::unique_ptr<wchar_t[]> copy = WideCopy(CP_UTF8, "a\xC3\xBC", -1, &cch);
    EXPECT_STREQ(copy.get(), L"a\u00FC");
    EXPECT_EQ(cch, 3);
    EXPECT_EQ(CGuardedHeap::SizeOf(copy.get()), 3 * sizeof(wchar_t));
    EXPECT_STREQ(WideCopy(CP_UTF8, "", -1).get(), L"");
}

TEST_F(TextConversionTest, WidensTheBytesThatItIsTold)
{
    int cch = 0;
    const std::unique_ptr<wchar_t[]> copy = WideCopy(CP_UTF8, "a\xC3\xBCxyz", 3, &cch);
    EXPECT_STREQ(copy.get(), L"a\u00FC");
    EXPECT_EQ(cch, 2);
    EXPECT_EQ(CGuardedHeap::SizeOf(copy.get()), 3 * sizeof(wchar_t));
    EXPECT_EQ(WideCopy(CP_UTF8, "abc", 0, &cch), nullptr) << "no bytes cannot be converted";
    EXPECT_EQ(cch, 0);
}

TEST_F(TextConversionTest, WidensNothingWithoutMemoryAndSaysWhatItWouldTake)
{
    int cch = 0;
    std::unique_ptr<wchar_t[]> copy;
    {
        const CFailingHeap failing;
        copy = WideCopy(CP_UTF8, "text", 4, &cch);
    }
    EXPECT_EQ(copy, nullptr);
    EXPECT_EQ(cch, 4);
}

int g_calls = 0;

int WINAPI FailingNarrow(UINT, DWORD, LPCWCH, int, LPSTR, int, LPCCH, LPBOOL)
{
    return g_calls++ == 0 ? 5 : 0;
}

// As the length has been had before, this is a platform that has gone wrong in between.
TEST_F(TextConversionTest, GivesAnEmptyTextWhenOnlyTheConversionItselfFails)
{
    const CImportPatch patch(GetModuleHandleW(nullptr), "WideCharToMultiByte", FailingNarrow);
    g_calls = 0;
    int cb = 99;
    const std::unique_ptr<char[]> copy = NarrowCopy(CP_UTF8, L"text", &cb);
    EXPECT_STREQ(copy.get(), "");
    EXPECT_EQ(cb, 0);
}

TEST_F(TextConversionTest, WideCopyAtOnceTakesTheTextUpToItsEnd)
{
    struct Row
    {
        const char* label;
        const char* text;
        DWORD cb;
        const wchar_t* expected;  // null: there is no copy
    };
    const Row rows[] = {
        {"empty", "", 0, L""},
        {"plain", "text", 4, L"text"},
        {"fewer characters than bytes", "a\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80z", 11,
         L"a\u00E4\u20AC\xD83D\xDE00z"},
        {"a part of a character at the end", "a\xE2\x82", 3, L"a\uFFFD"},
        {"not UTF-8", "\xFF\xFF", 2, L"\uFFFD\uFFFD"},
        {"ends before its size", "ab\0cd", 5, L"ab"},
        {"longer than its size", "abc", 2, nullptr},
        {"a size that no call takes", "abc", 0x7FFFFFFF, nullptr},
    };
    for (const Row& row : rows)
    {
        const std::unique_ptr<wchar_t[]> copy = WideCopyAtOnce(CP_UTF8, row.text, row.cb);
        EXPECT_EQ(copy == nullptr, row.expected == nullptr) << row.label;
        if (copy != nullptr && row.expected != nullptr)
        {
            EXPECT_STREQ(copy.get(), row.expected) << row.label;
        }
    }
}

constexpr size_t kLengths[] = {1, 31, 32, 33, 63, 64, 65, 70};

// Plain text is taken in strides: what is not plain stands at every place of some, and at their edges.
TEST_F(TextConversionTest, ConvertsLongTextAsThePlatformDoes)
{
    for (const wchar_t special : {L'\x7F', L'\x80', L'\xFF', L'\x100', L'\u20AC', L'\xFFFF'})
    {
        for (const size_t length : kLengths)
        {
            for (size_t place = 0; place < length; ++place)
            {
                std::wstring text(length, L'a');
                text[place] = special;
                for (const UINT codePage : {UINT{CP_UTF8}, UINT{CP_ACP}})
                {
                    char expected[4 * 70] = {};
                    const int cbExpected = WideCharToMultiByte(codePage, 0, text.c_str(), -1, expected,
                                                               sizeof(expected), nullptr, nullptr);
                    int cb = 0;
                    const std::unique_ptr<char[]> copy = NarrowCopy(codePage, text.c_str(), &cb);
                    ASSERT_EQ(cb, cbExpected) << length << " characters, special is number " << place;
                    ASSERT_STREQ(copy.get(), expected)
                        << length << " characters, special is number " << place;
                }
            }
        }
    }
}

TEST_F(TextConversionTest, WideCopyAtOnceTakesLongTextUpToItsEnd)
{
    for (const std::string& special : {std::string("\x7F"), std::string("\xC2\x80"), std::string(1, '\0')})
    {
        for (const size_t length : kLengths)
        {
            for (size_t place = 0; place <= length; ++place)
            {
                const std::string text = std::string(place, 'a') + special + std::string(length - place, 'b');
                wchar_t expected[80] = {};
                MultiByteToWideChar(CP_UTF8, 0, text.c_str(), -1, expected, 80);
                // One that ends within its size may have nothing behind that.
                const size_t cbTerminator = special[0] == '\0' ? 0 : 1;
                const std::unique_ptr<char[]> block(new char[text.size() + cbTerminator]);
                std::memcpy(block.get(), text.c_str(), text.size() + cbTerminator);
                const std::unique_ptr<wchar_t[]> copy =
                    WideCopyAtOnce(CP_UTF8, block.get(), static_cast<DWORD>(text.size()));
                ASSERT_STREQ(copy.get(), expected) << place << " characters before, " << length << " in all";
            }
        }
    }
}

TEST_F(TextConversionTest, WideCopyAtOnceTakesNoTextWhoseLengthTheSystemCannotName)
{
    for (const DWORD cb : {DWORD{INT_MAX} - 1, DWORD{INT_MAX}, DWORD{MAXDWORD}})
    {
        const CFailingHeap failing;
        EXPECT_EQ(WideCopyAtOnce(CP_UTF8, "a", cb), nullptr);
        EXPECT_EQ(failing.Requests(), 0u) << cb << " bytes";
    }
    const CFailingHeap failing;
    EXPECT_EQ(WideCopyAtOnce(CP_UTF8, "a", DWORD{INT_MAX} - 2), nullptr);
    EXPECT_EQ(failing.RefusedSize(), size_t{INT_MAX} * sizeof(wchar_t));
}

// It takes each character by itself, and a form or an answer is mostly ASCII.
TEST_F(TextConversionTest, AsksThePlatformOnlyForWhatFollowsTheAsciiBeginning)
{
    const CImportPatch narrow(GetModuleHandleW(nullptr), "WideCharToMultiByte", RecordingNarrow);
    const CImportPatch widen(GetModuleHandleW(nullptr), "MultiByteToWideChar", RecordingWiden);
    g_pfnNarrow = narrow.Original<decltype(WideCharToMultiByte)>();
    g_pfnWiden = widen.Original<decltype(MultiByteToWideChar)>();
    std::string text;
    for (char character = 1; character < 127; ++character)
    {
        text += character;
    }
    text += "\x7F and a rest";

    g_cchAsked = 0;
    EXPECT_STREQ(NarrowCopy(CP_UTF8, std::wstring(text.begin(), text.end()).c_str()).get(), text.c_str());
    EXPECT_EQ(g_cchAsked, text.size() % 32);

    g_cchAsked = 0;
    EXPECT_NE(WideCopyAtOnce(CP_UTF8, text.c_str(), static_cast<DWORD>(text.size())), nullptr);
    EXPECT_EQ(g_cchAsked, text.size() % 32);
}

}  // namespace
