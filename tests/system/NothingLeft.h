// Whether a piece of work gives back the threads and handles that it took.
#pragma once

#include <gtest/gtest.h>

#include "support/ProcessResources.h"

// The count, once it has come down to the limit: a worker that has left its object is still on its way out,
// and the platform's own threads come and go. What has leaked stays above it for as long as this waits.
inline int CountSettled(int (*count)(), int limit)
{
    constexpr ULONGLONG kSettleMs = 10000;
    const ULONGLONG end = GetTickCount64() + kSettleMs;
    int current = count();
    while (current > limit && GetTickCount64() < end)
    {
        Sleep(20);
        current = count();
    }
    return current;
}

// Counts threads and handles once a first round has made what the platform keeps for the life of the
// process, and expects that further rounds add nothing.
template <typename Round>
void ExpectNothingLeft(Round round, int rounds = 3)
{
    round();
    const int threads = CountThreads();
    const int handles = CountHandles();
    for (int count = 0; count < rounds; ++count)
    {
        round();
    }
    EXPECT_LE(CountSettled(CountThreads, threads), threads);
    EXPECT_LE(CountSettled(CountHandles, handles), handles);
}
