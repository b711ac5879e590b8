// Remembers the thread that made an object. In debug builds an operation that belongs to that thread ends
// the program when another one calls it; in release builds nothing is stored and nothing is checked.
#pragma once

#include <windows.h>

class COwnerThread
{
public:
#ifdef NDEBUG
    void Check() const {}
#else
    void Check() const
    {
        if (GetCurrentThreadId() != m_dwId)
        {
            DebugBreak();
        }
    }

private:
    const DWORD m_dwId = GetCurrentThreadId();
#endif
};
