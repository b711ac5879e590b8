// A thread that a test runs beside its own, for no longer than this object lives.
#pragma once

#include <windows.h>

#include <process.h>

#include <functional>
#include <utility>

class CSideThread
{
public:
    explicit CSideThread(std::function<void()> work)
        : m_work(std::move(work)),
          m_hThread(reinterpret_cast<HANDLE>(_beginthreadex(nullptr, 0, Run, this, 0, nullptr)))
    {
    }
    ~CSideThread()
    {
        Join();
        CloseHandle(m_hThread);
    }
    CSideThread(const CSideThread&) = delete;
    CSideThread& operator=(const CSideThread&) = delete;

    // In milliseconds.
    bool EndsWithin(DWORD dwTimeout) const
    {
        return WaitForSingleObject(m_hThread, dwTimeout) == WAIT_OBJECT_0;
    }

    void Join() const { WaitForSingleObject(m_hThread, INFINITE); }

    // Ends it wherever it is, as a module may do. False when that has failed.
    bool Kill() const
    {
        return TerminateThread(m_hThread, 0) && WaitForSingleObject(m_hThread, INFINITE) == WAIT_OBJECT_0;
    }

private:
    static unsigned __stdcall Run(void* pThis)
    {
        static_cast<CSideThread*>(pThis)->m_work();
        return 0;
    }

    const std::function<void()> m_work;
    const HANDLE m_hThread;
};
