// Whether a piece of work gives back the threads and handles that it took.
#pragma once

#include <gtest/gtest.h>

#include "support/ProcessResources.h"

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
