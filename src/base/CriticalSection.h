// A critical section that lives as long as its object, and what holds it for one scope.
#pragma once

#include <windows.h>

#include "base/ThreadAnnotations.h"

class KVHTTP_LOCK CCriticalSection
{
public:
    CCriticalSection() { InitializeCriticalSection(&m_cs); }
    ~CCriticalSection() { DeleteCriticalSection(&m_cs); }
    CCriticalSection(const CCriticalSection&) = delete;
    CCriticalSection& operator=(const CCriticalSection&) = delete;

    void Enter() KVHTTP_ACQUIRES() { EnterCriticalSection(&m_cs); }
    void Leave() KVHTTP_RELEASES() { LeaveCriticalSection(&m_cs); }

private:
    CRITICAL_SECTION m_cs{};
};

class KVHTTP_SCOPED_LOCK CCriticalSectionLock
{
public:
    explicit CCriticalSectionLock(CCriticalSection& cs) KVHTTP_ACQUIRES(cs) : m_cs(cs) { m_cs.Enter(); }
    ~CCriticalSectionLock() KVHTTP_RELEASES() { m_cs.Leave(); }
    CCriticalSectionLock(const CCriticalSectionLock&) = delete;
    CCriticalSectionLock& operator=(const CCriticalSectionLock&) = delete;

private:
    CCriticalSection& m_cs;
};
