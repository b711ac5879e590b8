// A lock and a condition between the threads of a test, with the operations of the standard library's
// classes: MinGW compilers with the Windows thread model lack those before GCC 13.
#pragma once

#include <windows.h>

#include <chrono>
#include <mutex>

// For std::lock_guard and std::unique_lock. Not recursive.
class CMutex
{
public:
    void lock() { AcquireSRWLockExclusive(&m_lock); }
    void unlock() { ReleaseSRWLockExclusive(&m_lock); }
    SRWLOCK* Get() { return &m_lock; }

private:
    SRWLOCK m_lock = SRWLOCK_INIT;
};

class CCondition
{
public:
    void notify_all() { WakeAllConditionVariable(&m_condition); }

    // Waits, without the lock meanwhile, until ready() holds; false when it did not in time.
    template <typename Ready>
    bool wait_for(std::unique_lock<CMutex>& lock, std::chrono::milliseconds patience, Ready ready)
    {
        const ULONGLONG start = GetTickCount64();
        const auto limit = static_cast<ULONGLONG>(patience.count());
        while (!ready())
        {
            const ULONGLONG passed = GetTickCount64() - start;
            if (passed >= limit)
            {
                return false;
            }
            SleepConditionVariableSRW(&m_condition, lock.mutex()->Get(), static_cast<DWORD>(limit - passed),
                                      0);
        }
        return true;
    }

private:
    CONDITION_VARIABLE m_condition = CONDITION_VARIABLE_INIT;
};
