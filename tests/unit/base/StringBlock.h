// What the tests of CStringEx look at behind its back: its block, and its lock.
#pragma once

#include "base/StringEx.h"
#include "support/guarded_heap/GuardedHeap.h"

// Characters that the string's block has room for, the terminator included; 0 without a block.
inline size_t BlockLength(const CStringEx& str)
{
    return CGuardedHeap::SizeOf(str.c_str()) / sizeof(wchar_t);
}

// Asks for no more than the string has, so that nothing but the lock can be the reason for a refusal.
inline bool IsLocked(CStringEx& str)
{
    static_cast<void>(static_cast<const wchar_t*>(str));
    if (str.GetBuffer(0) == nullptr)
    {
        return true;
    }
    str.ReleaseBuffer();
    return false;
}
