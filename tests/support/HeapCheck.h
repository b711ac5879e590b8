// Looks through the heaps of the test program, between tests and where KVHTTP_CHECK_HEAPS is set: for a run
// in which the platform marks the end of each block and what has been freed. HeapValidate then finds what was
// written there.
#pragma once

#include <windows.h>

class CHeapCheck
{
public:
    bool IsOn() const { return m_bOn; }

    // False when a heap is damaged. One that another thread is changing may look so for a moment: only what
    // stays that way counts.
    bool AreHeapsSound() const;

private:
    // Taken before any test patches the import table of the program.
    struct Platform
    {
        decltype(&GetProcessHeaps) pfnGetProcessHeaps = &GetProcessHeaps;
        decltype(&HeapValidate) pfnHeapValidate = &HeapValidate;
        decltype(&Sleep) pfnSleep = &Sleep;
    };

    bool AreSoundNow() const;

    const Platform m_platform;
    const bool m_bOn = GetEnvironmentVariableW(L"KVHTTP_CHECK_HEAPS", nullptr, 0) != 0;
};
