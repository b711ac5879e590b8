// Milliseconds that a request has been running, on the system's tick count. Stopping freezes the
// count; after a stop it is restarted from zero, not resumed, so that the time a user spends in a
// dialog never counts. Written by one thread and read by another: each field is whole at any time.
#pragma once

#include <windows.h>

#include <atomic>

class CTimeCounter
{
public:
    CTimeCounter() = default;
    virtual ~CTimeCounter() = default;

    void Start()
    {
        m_dwStart = GetTickCount();
        m_dwStop = 0;
    }

    void Stop() { m_dwStop = GetTickCount(); }

    // Does nothing while the counter runs.
    void Restart()
    {
        if (m_dwStop != 0)
        {
            // The start moves first: a reader between the two stores sees 0, never the old time.
            m_dwStart = GetTickCount();
            m_dwStop = 0;
        }
    }

    // 0 when the tick count has wrapped since the start, so that the count begins again. A stop tick
    // that happens to be 0 counts as running.
    DWORD GetElapsed() const
    {
        const DWORD dwStop = m_dwStop;
        const DWORD dwEnd = dwStop != 0 ? dwStop : GetTickCount();
        const DWORD dwStart = m_dwStart;
        return dwEnd > dwStart ? dwEnd - dwStart : 0;
    }

private:
    std::atomic<DWORD> m_dwStart{0};
    std::atomic<DWORD> m_dwStop{0};
};
