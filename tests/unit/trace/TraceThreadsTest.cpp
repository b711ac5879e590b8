// Records that several threads write at once.
#include <gmock/gmock.h>

#include <memory>
#include <string>
#include <vector>

#include "support/Gate.h"
#include "support/RecordedTrace.h"
#include "support/SideThread.h"
#include "trace/AutoFunTrace.h"
#include "trace/Trace.h"

namespace
{

using Texts = std::vector<std::string>;

constexpr int kThreads = 4;
constexpr int kRounds = 100;

// Two pieces each, and no two alike.
std::string MessageOf(int thread, int round)
{
    const std::string mark = "thread " + std::to_string(thread) + " round " + std::to_string(round) + " ";
    return mark + std::string(2500 - mark.size(), static_cast<char>('a' + thread));
}

void Write(int thread)
{
    for (int round = 0; round < kRounds; ++round)
    {
        const CAutoFunTrace trace(std::to_string(thread).c_str());
        TraceVars(kTraceError, MessageOf(thread, round).c_str(), static_cast<const TraceVarPair*>(nullptr));
    }
}

Texts RecordsOf(int thread)
{
    const std::string name = std::to_string(thread);
    Texts records;
    for (int round = 0; round < kRounds; ++round)
    {
        const std::string text = MessageOf(thread, round) + " \n";
        records.insert(records.end(), {"2|--> " + name + " \n", "8|" + text.substr(0, 2047),
                                       "8|" + text.substr(2047), "2|<-- " + name + " \n"});
    }
    return records;
}

TEST(TraceThreadsTest, EachThreadsRecordsComeWholeAndInTheirOrder)
{
    CRecordedTrace trace;
    EXPECT_NE(GetTraceProc(), nullptr);  // the first lookup is one thread's
    CGate go;
    std::vector<Texts> written(kThreads);
    {
        std::vector<std::unique_ptr<CSideThread>> threads;
        for (int thread = 0; thread < kThreads; ++thread)
        {
            threads.push_back(std::make_unique<CSideThread>(
                [&, thread]
                {
                    go.Wait();
                    Write(thread);
                    written[static_cast<size_t>(thread)] = trace.OfThisThread();
                }));
        }
        go.Open();
    }
    for (int thread = 0; thread < kThreads; ++thread)
    {
        EXPECT_EQ(written[static_cast<size_t>(thread)], RecordsOf(thread)) << "thread " << thread;
    }
}

}  // namespace
