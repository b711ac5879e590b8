#include "base/TextLength.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>

#include "support/guarded_heap/GuardedHeap.h"

namespace
{

constexpr size_t kLongest = 200;

// What stands behind the terminator of a text that ends at a page's end cannot be read.
TEST(TextLengthTest, CountsTextsOfEachLengthAtEachPlaceBeforeAPagesEnd)
{
    for (size_t cch = 1; cch <= kLongest; ++cch)
    {
        const std::unique_ptr<wchar_t[]> block(new wchar_t[cch]);
        ASSERT_EQ(CGuardedHeap::SizeOf(block.get()), cch * sizeof(wchar_t));
        std::fill_n(block.get(), cch - 1, L'x');
        block[cch - 1] = L'\0';
        for (size_t begin = 0; begin < cch; ++begin)
        {
            EXPECT_EQ(TextLength(block.get() + begin), cch - 1 - begin) << cch << ", from " << begin;
        }
    }
}

TEST(TextLengthTest, StopsAtTheFirstTerminator)
{
    wchar_t text[kLongest] = {};
    for (size_t end = 0; end < kLongest; ++end)
    {
        std::fill_n(text, kLongest, L'x');
        text[end] = text[kLongest - 1] = L'\0';
        EXPECT_EQ(TextLength(text), end);
    }
}

TEST(TextLengthTest, TakesNoOtherCodeForTheTerminator)
{
    wchar_t text[kLongest] = {};
    for (unsigned code = 1; code <= 0xFFFF; ++code)
    {
        std::fill_n(text, kLongest - 1, static_cast<wchar_t>(code));
        ASSERT_EQ(TextLength(text), kLongest - 1) << std::hex << code;
    }
}

}  // namespace
