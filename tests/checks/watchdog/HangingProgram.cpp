// A program with tests that hang, crash and end in time: what the watchdog's own test watches.
#include <gtest/gtest.h>
#include <windows.h>

#include <cstdint>

// Neither can be inlined into its caller, nor be its last jump, so that the report names them.
__declspec(noinline) bool WaitForever(HANDLE hEvent)
{
    return WaitForSingleObject(hEvent, INFINITE) == WAIT_OBJECT_0;
}

__declspec(noinline) DWORD WINAPI SleepForever(void* pUnused)
{
    Sleep(INFINITE);
    return pUnused != nullptr;
}

TEST(HangingProgram, NeverEnds)
{
    const HANDLE hThread = CreateThread(nullptr, 0, SleepForever, nullptr, 0, nullptr);
    ASSERT_NE(hThread, nullptr);
    EXPECT_FALSE(WaitForever(CreateEventW(nullptr, TRUE, FALSE, nullptr)));
}

TEST(HangingProgram, Crashes)
{
    // Not null, which a build that traps at undefined behaviour would find first.
    volatile int* volatile pNowhere = reinterpret_cast<int*>(std::uintptr_t{16});
    *pNowhere = 1;
}

TEST(HangingProgram, EndsInTime)
{
    EXPECT_EQ(WaitForSingleObject(GetCurrentThread(), 10), WAIT_TIMEOUT);
}
