#include "kvHttp/Outcome.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

namespace
{

TEST(OutcomeTest, HasASentenceOfItsOwnForEach)
{
    std::set<std::wstring> sentences;
    for (int value = 0; value <= static_cast<int>(kvHttp::Outcome::NoComponent); ++value)
    {
        const std::wstring sentence = Describe(static_cast<kvHttp::Outcome>(value));
        SCOPED_TRACE(testing::PrintToString(sentence));
        EXPECT_TRUE(sentences.insert(sentence).second) << "said of another one, too";
        EXPECT_EQ(sentence.back(), L'.');
        EXPECT_EQ(sentence.find(L". "), std::wstring::npos) << "one sentence is enough";
        for (const wchar_t character : sentence)
        {
            EXPECT_TRUE(character >= L' ' && character <= L'~');
        }
    }
}

TEST(OutcomeTest, OfAComponentThatHasDoneNothingIsIdle)
{
    EXPECT_EQ(kvHttp::OutcomeOf(REQ_STATUS_IDLE), kvHttp::Outcome::Idle);
}

}  // namespace
