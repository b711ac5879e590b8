#include "base/OwnerThread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <type_traits>

namespace
{

std::atomic<int> g_cTraps = 0;

// Counts the trap and goes on behind it.
LONG WINAPI CountTrap(EXCEPTION_POINTERS* pPointers)
{
    if (pPointers->ExceptionRecord->ExceptionCode != EXCEPTION_BREAKPOINT)
    {
        return EXCEPTION_CONTINUE_SEARCH;
    }
    ++g_cTraps;
    ++pPointers->ContextRecord->Rip;
    return EXCEPTION_CONTINUE_EXECUTION;
}

// Debug builds end a program that calls from another thread; release builds do not look.
TEST(OwnerThreadTest, TrapsOnAnotherThreadInDebugBuilds)
{
#ifdef NDEBUG
    constexpr int kExpected = 0;
    EXPECT_TRUE(std::is_empty_v<COwnerThread>) << "nothing is stored";
#else
    constexpr int kExpected = 1;
#endif
    void* const pHandler = AddVectoredExceptionHandler(1, CountTrap);
    COwnerThread owner;
    owner.Check();
    EXPECT_EQ(g_cTraps, 0) << "on the thread that made it";
    HANDLE hThread = CreateThread(
        nullptr, 0,
        [](void* pOwner) -> DWORD
        {
            static_cast<const COwnerThread*>(pOwner)->Check();
            return 0;
        },
        &owner, 0, nullptr);
    ASSERT_NE(hThread, nullptr);
    WaitForSingleObject(hThread, INFINITE);
    CloseHandle(hThread);
    RemoveVectoredExceptionHandler(pHandler);
    EXPECT_EQ(g_cTraps, kExpected);
}

}  // namespace
