// A library that the module loads at run time and holds until the process ends.
#pragma once

#include <windows.h>

class CDLLHandle
{
public:
    CDLLHandle() = default;
    // Frees the library.
    virtual ~CDLLHandle();
    CDLLHandle(const CDLLHandle&) = delete;
    CDLLHandle& operator=(const CDLLHandle&) = delete;

    // Loads the library called name from the folder of the module owner, and from nowhere else; one
    // held already is freed first. Afterwards the attempt counts as made, whether it succeeded or
    // not. A null name does nothing. reserved has no effect.
    void Load(const wchar_t* name, HMODULE owner, int reserved);

    // Takes a library that the caller loaded, which may be null; the attempt counts as made.
    void Attach(HMODULE hModule);

    // Null when nothing is loaded.
    HMODULE Get() const { return m_hModule; }

private:
    void Free();

    HMODULE m_hModule = nullptr;
    LONG m_bLoaded = 0;  // set by every attempt
};
