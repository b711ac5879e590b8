// Libraries of the system that are not linked at load time.
#pragma once

#include <windows.h>

#include "trace/DLLHandle.h"

// Loads name from the system directory, by full path. Null on failure. The caller owns the reference.
HMODULE LoadSystemLibrary(const wchar_t* name);

// A system library that is loaded once and kept for the life of the process; meant for a CFirstUse.
class CSystemLibrary
{
public:
    explicit CSystemLibrary(const wchar_t* name) { m_library.Attach(LoadSystemLibrary(name)); }

    explicit operator bool() const { return m_library.Get() != nullptr; }

    // Null when the library is missing or has no such entry point.
    template <typename Function>
    Function* Find(const char* entryPoint) const
    {
        return FindEntryPoint<Function>(m_library.Get(), entryPoint);
    }

    template <typename Function>
    static Function* FindEntryPoint(HMODULE hModule, const char* entryPoint)
    {
        return reinterpret_cast<Function*>(reinterpret_cast<void*>(GetProcAddress(hModule, entryPoint)));
    }

private:
    CDLLHandle m_library;
};

// The one handle of this library in the process; several operations share it.
const CSystemLibrary& GetAdvapi32();
