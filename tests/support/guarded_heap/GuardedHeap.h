// The operators new and delete of a test program that links kvhttp_guarded_heap, and of the module where it
// links kvhttp_guarded_module. Every array block ends exactly at a page that nobody may touch, so that an
// overrun by one byte ends the program, and the address of a released block is never used again, so that a
// late access does too. Single objects come from the C heap: the optimiser takes their alignment for granted.
// CFailingHeap refuses both.
//
// A program that asks for millions of blocks calls RecycleBlocks: blocks of up to 128 KB are used again then,
// the one first that was released longest ago, and a late write is found when that happens. Objects whose
// size keeps the alignment end at a guard page, too.
#pragma once

#include <cstddef>

#include "support/FailingHeap.h"

class CGuardedHeap
{
public:
    // For the rest of the program, which must ask from one thread at a time.
    static void RecycleBlocks();

    // Array blocks not yet released.
    static size_t LiveArrays();
    // Array blocks and single objects not yet released.
    static size_t LiveBlocks();
    // Bytes that were asked for; 0 when array is no live array block.
    static size_t SizeOf(const void* array);

    // What a program and a module do differently.
    static size_t ArenaSize();
    // False: this request is refused.
    static bool Grants(size_t size, bool bArray);
};
