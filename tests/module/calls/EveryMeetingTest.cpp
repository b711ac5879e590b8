// Every meeting of the two threads: the worker is held before and behind each of its calls of the platform,
// in turn, and the host makes each of its moves there, and each pair of them. Nothing calls with a handle
// that has gone, no form goes out twice or elsewhere, an exchange beside it is not touched, and nothing is
// left or stuck. KVHTTP_MEETINGS=all in the environment takes all of them; without, some from all over.
#include <gtest/gtest.h>

#include <cstdio>
#include <numeric>

#include "module/calls/MeetingRun.h"
#include "support/Watchdog.h"

namespace
{

constexpr size_t kSample = 120;
constexpr size_t kSlowSample = 40;

using Moves = std::vector<Move>;

std::vector<Moves> AllMoves()
{
    std::vector<Moves> all;
    for (int first = 0; first < MOVES; ++first)
    {
        all.push_back({static_cast<Move>(first)});
        for (int second = 0; second < MOVES && !IsLast(static_cast<Move>(first)); ++second)
        {
            all.push_back({static_cast<Move>(first), static_cast<Move>(second)});
        }
    }
    return all;
}

std::string NameOf(const Moves& moves)
{
    std::string name;
    for (const Move move : moves)
    {
        name += (name.empty() ? "" : ", ") + std::string(NameOf(move));
    }
    return name;
}

// All, or every so many, so that about as many as the sample are taken, and other ones for each move.
size_t StepThrough(size_t meetings, size_t courses, size_t sample)
{
    char szValue[16] = {};
    const bool bAll = GetEnvironmentVariableA("KVHTTP_MEETINGS", szValue, sizeof(szValue)) != 0 &&
                      std::string(szValue) == "all";
    size_t step = bAll ? 1 : meetings / sample + 1;
    while (std::gcd(step, courses) != 1)
    {
        ++step;
    }
    return step;
}

class EveryMeetingTest : public testing::TestWithParam<ExchangeKind>
{
protected:
    EveryMeetingTest() { BrowseWithManualProxy(m_user); }

    void SetUp() override
    {
        if (KVHTTP_COUNTS_LINES)
        {
            GTEST_SKIP() << "what writes the counts makes calls of its own";
        }
    }

    std::vector<CMeetingPoint> FindPoints()
    {
        CMeetingRun run(GetParam(), m_user);
        const std::vector<CMeetingPoint> points = run.FindPoints();
        EXPECT_EQ(run.Faults(), std::vector<std::string>()) << "nobody meets anybody";
        EXPECT_EQ(run.Calls().Unknown(), std::vector<std::string>());
        return points;
    }

    void Meet(const CMeetingPoint& point, const Moves& moves)
    {
        const std::string name = std::string(NameOf(GetParam())) + ", " + point.name + ": " + NameOf(moves);
        CWatchdog::Note(name);
        SCOPED_TRACE(name);
        CMeetingRun run(GetParam(), m_user);
        run.Meet(point, moves);
        EXPECT_EQ(run.Faults(), std::vector<std::string>());
    }

    CProxyUser m_user;
};

TEST_P(EveryMeetingTest, HarmsNobody)
{
    const std::vector<CMeetingPoint> points = FindPoints();
    const std::vector<Moves> courses = AllMoves();
    const size_t meetings = points.size() * courses.size();
    const size_t step =
        StepThrough(meetings, courses.size(), GetParam() == EXCHANGE_DISCOVERY ? kSlowSample : kSample);
    size_t runs = 0;
    for (size_t meeting = 0; meeting < meetings; meeting += step)
    {
        Meet(points[meeting / courses.size()], courses[meeting % courses.size()]);
        ++runs;
    }
    std::printf("%s: %zu points, %zu courses of the host, %zu meetings, %zu of them made\n",
                NameOf(GetParam()), points.size(), courses.size(), meetings, runs);
    EXPECT_GT(points.size(), 50u);
}

INSTANTIATE_TEST_SUITE_P(Exchanges, EveryMeetingTest,
                         testing::Values(EXCHANGE_TEXT, EXCHANGE_FILE, EXCHANGE_REDIRECT, EXCHANGE_DIALOG,
                                         EXCHANGE_DISCOVERY),
                         [](const testing::TestParamInfo<ExchangeKind>& exchange)
                         { return std::string(NameOf(exchange.param)); });

}  // namespace
