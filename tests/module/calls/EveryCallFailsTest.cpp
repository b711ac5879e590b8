// Every call that the module makes of the platform in an exchange fails once, in each way that its
// documentation allows. The exchange then ends in a status or with the result that is meant for it; nothing
// crashes, hangs, or is left. KVHTTP_FAULTS=all in the environment takes all calls; without, memory is
// refused at some of the many places only. KVHTTP_FAULTS_TABLE=1 prints how the exchanges have ended.
#include <gtest/gtest.h>

#include <cstdio>
#include <map>
#include <ostream>

#include "module/calls/ExchangeRun.h"
#include "support/Watchdog.h"

namespace
{

constexpr unsigned kFirstCalls = 6;
constexpr unsigned kSampleStep = 5;

bool IsSet(const char* pszVariable, const char* pszValue)
{
    char szValue[16] = {};
    return GetEnvironmentVariableA(pszVariable, szValue, sizeof(szValue)) != 0 &&
           std::string(szValue) == pszValue;
}

bool IsOfMemory(const std::string& name)
{
    return name == "malloc" || name == "calloc" || name == "realloc" || name == "WideCharToMultiByte";
}

class EveryCallFailsTest : public testing::TestWithParam<ExchangeKind>
{
protected:
    EveryCallFailsTest() { BrowseWithManualProxy(m_user); }

    void SetUp() override
    {
        if (KVHTTP_COUNTS_LINES)
        {
            GTEST_SKIP() << "what writes the counts makes calls of its own";
        }
    }

    static bool IsReleased() { return GetParam() == EXCHANGE_RELEASE || GetParam() == EXCHANGE_QUIT; }

    // How often each function is called when nothing fails.
    std::vector<unsigned> CountCalls()
    {
        CExchangeRun run(GetParam(), m_user, m_bTraces);
        run.Calls().Begin();
        const std::string expected = IsReleased() ? "R" : "9";
        EXPECT_EQ(run.Run(), expected);
        EXPECT_EQ(run.Faults(), std::vector<std::string>());
        EXPECT_EQ(run.Calls().Unknown(), std::vector<std::string>())
            << "say in tests/support/calls how these fail";
        std::vector<unsigned> counts;
        for (size_t row = 0; row < CallRows().size(); ++row)
        {
            counts.push_back(run.Calls().Count(row));
        }
        return counts;
    }

    void Fail(size_t row, size_t way, unsigned nth, bool bFromThenOn)
    {
        const CCallRow& call = CallRows()[row];
        const std::string name = std::string(NameOf(GetParam())) + ": " + call.name + " #" +
                                 std::to_string(nth) + (bFromThenOn ? " and later, " : ", ") +
                                 call.ways[way].label;
        CWatchdog::Note(name);
        SCOPED_TRACE(name);
        CExchangeRun run(GetParam(), m_user, m_bTraces);
        run.Calls().Begin({row, way, nth, bFromThenOn});
        const std::string outcome = run.Run();
        const std::string allowed = call.ways[way].outcomes + (IsReleased() ? "R" : "");
        EXPECT_EQ(outcome.find_first_not_of(allowed), std::string::npos)
            << "it ends in " << outcome << ", expected one of " << allowed;
        std::vector<std::string> faults = run.Faults();
        std::erase(faults, "left: " + call.ways[way].leaves);
        EXPECT_EQ(faults, std::vector<std::string>());
        EXPECT_EQ(run.Calls().Unknown(), std::vector<std::string>());
        m_missed += run.Calls().Failures() == 0;
        ++m_outcomes[call.name + ", " + call.ways[way].label][outcome];
        ++m_runs;
    }

    // Each call of the functions that are chosen; behind the first ones every so many.
    void FailAll(bool (*chosen)(const CCallRow& row), unsigned step, bool bFromThenOn = false)
    {
        const std::vector<unsigned> counts = CountCalls();
        for (size_t row = 0; row < counts.size(); ++row)
        {
            const CCallRow& call = CallRows()[row];
            for (size_t way = 0; way < call.ways.size() && chosen(call); ++way)
            {
                for (unsigned nth = 1; nth <= counts[row]; nth += nth < kFirstCalls ? 1 : step)
                {
                    Fail(row, way, nth, bFromThenOn);
                }
            }
        }
        Report(counts);
    }

    void Report(const std::vector<unsigned>& counts) const
    {
        std::printf("%s: %u failures of calls, %u of which did not come about\n", NameOf(GetParam()), m_runs,
                    m_missed);
        if (!IsSet("KVHTTP_FAULTS_TABLE", "1"))
        {
            return;
        }
        for (const auto& [name, outcomes] : m_outcomes)
        {
            std::string text;
            unsigned all = 0;
            for (const auto& [outcome, count] : outcomes)
            {
                text += " " + outcome + ":" + std::to_string(count);
                all += count;
            }
            std::printf("| %s | %s | %u |%s |\n", NameOf(GetParam()), name.c_str(), all, text.c_str());
        }
        for (size_t row = 0; row < CallRows().size(); ++row)
        {
            const CCallRow& call = CallRows()[row];
            if (call.pThunk != nullptr && call.ways.empty() && counts[row] != 0)
            {
                std::printf("| %s | %s | 0 | of %u: %s |\n", NameOf(GetParam()), call.name.c_str(),
                            counts[row], call.reason.c_str());
            }
        }
    }

    bool m_bTraces = true;
    CProxyUser m_user;
    std::map<std::string, std::map<std::string, unsigned>> m_outcomes;
    unsigned m_runs = 0;
    unsigned m_missed = 0;  // the call did not come: the threads have taken turns otherwise
};

TEST_P(EveryCallFailsTest, EndsAsIsMeantAndLeavesNothing)
{
    FailAll([](const CCallRow& row) { return !IsOfMemory(row.name); }, 1);
}

TEST_P(EveryCallFailsTest, EndsAsIsMeantWithoutMemory)
{
    FailAll([](const CCallRow& row) { return IsOfMemory(row.name); },
            IsSet("KVHTTP_FAULTS", "all") ? 1 : kSampleStep);
}

// Without the trace library, and with nothing to be decoded: raising an exception needs memory.
TEST_P(EveryCallFailsTest, EndsAsIsMeantWhenMemoryHasRunOut)
{
    if (GetParam() != EXCHANGE_FILE && !IsReleased())
    {
        return;
    }
    m_bTraces = false;
    FailAll([](const CCallRow& row) { return row.name == "malloc"; }, 1, true);
}

INSTANTIATE_TEST_SUITE_P(Exchanges, EveryCallFailsTest, testing::ValuesIn(kExchangeKinds),
                         [](const testing::TestParamInfo<ExchangeKind>& exchange)
                         { return std::string(NameOf(exchange.param)); });

}  // namespace
