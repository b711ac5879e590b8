#include "support/HeapCheck.h"

#include <algorithm>
#include <array>

namespace
{

constexpr int kLooks = 20;
constexpr DWORD kBetweenLooksMs = 5;
constexpr DWORD kMostHeaps = 64;

}  // namespace

bool CHeapCheck::AreHeapsSound() const
{
    for (int look = 1; !AreSoundNow(); ++look)
    {
        if (look == kLooks)
        {
            return false;
        }
        m_platform.pfnSleep(kBetweenLooksMs);
    }
    return true;
}

bool CHeapCheck::AreSoundNow() const
{
    std::array<HANDLE, kMostHeaps> heaps{};
    const DWORD count = std::min(m_platform.pfnGetProcessHeaps(kMostHeaps, heaps.data()), kMostHeaps);
    return std::all_of(heaps.begin(), heaps.begin() + count,
                       [&](HANDLE hHeap) { return m_platform.pfnHeapValidate(hHeap, 0, nullptr) != FALSE; });
}
