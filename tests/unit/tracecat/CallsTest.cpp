// Which calls an entry of the trace lies in.
#include "tracecat/Calls.h"

#include <gmock/gmock.h>

#include "unit/tracecat/SampleTrace.h"

using testing::ElementsAre;

namespace
{

class CallsTest : public testing::Test
{
protected:
    CallPlace Take(std::int64_t when, const std::string& text, unsigned long thread = kHost)
    {
        return m_calls.Take(Entry(when, thread, text));
    }

    static std::vector<std::string> Names(const CallPlace& place)
    {
        std::vector<std::string> names;
        for (const Call& call : place.calls)
        {
            names.push_back(call.strName);
        }
        return names;
    }

    CCalls m_calls;
};

TEST_F(CallsTest, EntryAndExitHaveOneDepthAndWhatIsWithinTheNext)
{
    EXPECT_EQ(Take(1, "before").depth, 0u);
    EXPECT_EQ(Take(2, "--> outer").depth, 0u);
    EXPECT_EQ(Take(3, "text").depth, 1u);
    EXPECT_EQ(Take(4, "--> inner").depth, 1u);
    EXPECT_EQ(Take(5, "text").depth, 2u);
    EXPECT_EQ(Take(6, "<-- inner").depth, 1u);
    EXPECT_EQ(Take(7, "<-- outer").depth, 0u);
    EXPECT_EQ(Take(8, "behind").depth, 0u);
}

TEST_F(CallsTest, ExitTellsHowLongTheCallTook)
{
    Take(100, "--> outer");
    Take(150, "--> inner");
    EXPECT_EQ(Take(170, "<-- inner").nTook, 20);
    EXPECT_EQ(Take(1100, "<-- outer").nTook, 1000);
}

TEST_F(CallsTest, NamesTheCallsFromTheOutermostOn)
{
    EXPECT_THAT(Names(Take(1, "--> outer")), ElementsAre("outer"));
    EXPECT_THAT(Names(Take(2, "--> inner")), ElementsAre("outer", "inner"));
    EXPECT_THAT(Names(Take(3, "text")), ElementsAre("outer", "inner"));
    EXPECT_THAT(Names(Take(4, "<-- inner")), ElementsAre("outer", "inner"));
    EXPECT_THAT(Names(Take(5, "text")), ElementsAre("outer"));
}

TEST_F(CallsTest, ThreadsHaveCallsOfTheirOwn)
{
    Take(1, "--> outer");
    EXPECT_EQ(Take(2, "text", kWorker).depth, 0u);
    EXPECT_EQ(Take(3, "<-- outer", kWorker).nTook, std::nullopt);
    EXPECT_EQ(Take(4, "<-- outer").nTook, 3);
    TraceEntry other = Entry(5, kHost, "--> outer");
    other.process = kProcess + 1;
    m_calls.Take(other);
    EXPECT_EQ(Take(6, "text").depth, 0u);
}

TEST_F(CallsTest, LostExitsEndWithTheOneAroundThem)
{
    Take(1, "--> outer");
    Take(2, "--> lost");
    const CallPlace place = Take(9, "<-- outer");
    EXPECT_EQ(place.depth, 0u);
    EXPECT_EQ(place.nTook, 8);
    EXPECT_EQ(Take(10, "text").depth, 0u);
}

TEST_F(CallsTest, LostEntryChangesNothing)
{
    Take(1, "--> outer");
    const CallPlace place = Take(2, "<-- unknown");
    EXPECT_EQ(place.depth, 1u);
    EXPECT_EQ(place.nTook, std::nullopt);
    EXPECT_EQ(Take(3, "<-- outer").nTook, 2);
}

TEST_F(CallsTest, RecursionEndsTheInnermostFirst)
{
    Take(1, "--> same");
    Take(2, "--> same");
    EXPECT_EQ(Take(4, "<-- same").nTook, 2);
    EXPECT_EQ(Take(5, "<-- same").nTook, 4);
}

TEST_F(CallsTest, NewProcessOfTheSameNumberBeginsAnew)
{
    Take(1, "--> killed");
    m_calls.Take(Entry(2, kWorker, "trace begins: C:\\host.exe", 0));
    EXPECT_EQ(Take(3, "text").depth, 0u);
}

TEST_F(CallsTest, RecordThatOnlyLooksLikeTheNoteBeginsNothing)
{
    Take(1, "--> outer");
    m_calls.Take(Entry(2, kWorker, "trace begins: C:\\host.exe"));
    EXPECT_EQ(Take(3, "text").depth, 1u);
}

}  // namespace
