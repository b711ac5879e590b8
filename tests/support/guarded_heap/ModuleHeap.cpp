// The guarded heap of the module. It has nothing of the tests' other support, whose calls of the platform the
// tests would take for the module's own.
#include <cstdlib>

#include "support/guarded_heap/GuardedHeap.h"

// Small, since each time that the module is loaded it takes another one.
size_t CGuardedHeap::ArenaSize()
{
    return size_t{1} << 33;
}

// Tests count and refuse the module's memory at its malloc, which single objects come from anyway.
bool CGuardedHeap::Grants(size_t size, bool bArray)
{
    if (!bArray)
    {
        return true;
    }
    void* volatile const block = std::malloc(size);  // volatile: or the compiler leaves it out
    const bool bGranted = block != nullptr;
    std::free(block);
    return bGranted;
}
