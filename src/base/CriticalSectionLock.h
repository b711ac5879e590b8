// Holds a critical section for one scope.
#pragma once

#include <windows.h>

class CCriticalSectionLock
{
public:
    explicit CCriticalSectionLock(CRITICAL_SECTION& cs) : m_cs(cs) { EnterCriticalSection(&m_cs); }
    ~CCriticalSectionLock() { LeaveCriticalSection(&m_cs); }
    CCriticalSectionLock(const CCriticalSectionLock&) = delete;
    CCriticalSectionLock& operator=(const CCriticalSectionLock&) = delete;

private:
    CRITICAL_SECTION& m_cs;
};
