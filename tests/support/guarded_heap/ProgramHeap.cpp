// The guarded heap of a test program.
#include "support/guarded_heap/GuardedHeap.h"

namespace
{

[[maybe_unused]] const bool g_bAsks = CFailingHeap::UseOperators();

}  // namespace

size_t CGuardedHeap::ArenaSize()
{
    return size_t{1} << 36;
}

bool CGuardedHeap::Grants(size_t size, bool /*bArray*/)
{
    return !CFailingHeap::Refuses(size);
}
