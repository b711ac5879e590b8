// The operators new and delete of a test program that links kvhttp_guarded_heap. Every array block ends
// exactly at a page that nobody may touch, so that an overrun by one byte ends the program, and the
// address of a released block is never used again, so that a late access does too. Single objects come
// from the C heap: the optimiser takes their alignment for granted.
#pragma once

#include <cstddef>
#include <limits>

class CGuardedHeap
{
public:
    // Array blocks not yet released.
    static size_t LiveArrays();
    // Array blocks and single objects not yet released.
    static size_t LiveBlocks();
    // Bytes that were asked for; 0 when array is no live array block.
    static size_t SizeOf(const void* array);
};

// While it lives, fails count allocations from the first-th on (counted from 1). The test framework
// allocates too: take results inside its scope and look at them outside.
class CFailingHeap
{
public:
    explicit CFailingHeap(unsigned first = 1, unsigned count = std::numeric_limits<unsigned>::max());
    ~CFailingHeap();
    CFailingHeap(const CFailingHeap&) = delete;
    CFailingHeap& operator=(const CFailingHeap&) = delete;

    // Allocations asked for so far, failed ones included.
    unsigned Requests() const;
};
