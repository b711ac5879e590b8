// Counts that several threads change at once. A change that is no single step loses some of them.
#pragma once

#include <windows.h>

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <list>

#include "support/SideThread.h"

inline constexpr LONG kCountingThreads = 4;
inline constexpr LONG kCountingRounds = 100'000;
inline constexpr LONG kCountedTogether = kCountingThreads * kCountingRounds;

// Threads that run one behind the other lose nothing. So each round also changes a count in two steps, on
// purpose; what that has lost shows how often the threads have met.
inline constexpr LONG kEnoughMeetings = 2'000;
inline constexpr int kMaxCountingBatches = 200;

// Runs step kCountingRounds times on each thread; all begin together. Returns how often they have met.
inline LONG RunCountingBatch(const std::function<void()>& step)
{
    std::atomic<LONG> ready{0};
    std::atomic<LONG> twoSteps{0};
    std::list<CSideThread> threads;
    for (LONG thread = 0; thread < kCountingThreads; ++thread)
    {
        threads.emplace_back(
            [&]
            {
                ++ready;
                while (ready < kCountingThreads)
                {
                    SwitchToThread();
                }
                for (LONG round = 0; round < kCountingRounds; ++round)
                {
                    step();
                    twoSteps.store(twoSteps.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
                }
            });
    }
    threads.clear();
    return kCountedTogether - twoSteps;
}

// Counts up and down until the threads have met often enough both ways. On a machine that runs one thread
// at a time they never do.
inline void ExpectAllCounted(const std::function<void()>& up, const std::function<void()>& down,
                             const std::function<LONG()>& count)
{
    const LONG atStart = count();
    LONG metUp = 0;
    LONG metDown = 0;
    for (int batch = 0; batch < kMaxCountingBatches && (metUp < kEnoughMeetings || metDown < kEnoughMeetings);
         ++batch)
    {
        metUp += RunCountingBatch(up);
        ASSERT_EQ(count(), atStart + kCountedTogether) << "counted up, batch " << batch;
        metDown += RunCountingBatch(down);
        ASSERT_EQ(count(), atStart) << "counted down, batch " << batch;
    }
}
