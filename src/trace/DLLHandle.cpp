#include "trace/DLLHandle.h"

#include <shlwapi.h>

#include "base/ModulePath.h"

CDLLHandle::~CDLLHandle()
{
    Free();
}

void CDLLHandle::Load(const wchar_t* name, HMODULE owner, int /*reserved*/)
{
    if (name == nullptr)
    {
        return;
    }
    Free();
    m_bLoaded = 0;
    // Intended: the answer has no use here.
    static_cast<void>(GetModuleHandleW(name));

    wchar_t szPath[MAX_PATH] = {};
    const bool bKnown = GetModulePath(owner, szPath);
    PathRemoveFileSpecW(szPath);
    // A path that is missing or cut off would name another folder, or none and so the search path.
    const bool bOwnFolder = bKnown && PathAppendW(szPath, name);
    Attach(bOwnFolder ? LoadLibraryW(szPath) : nullptr);
}

void CDLLHandle::Attach(HMODULE hModule)
{
    m_hModule = hModule;
    m_bLoaded = 1;
}

void CDLLHandle::Free()
{
    if (m_bLoaded != 0 && m_hModule != nullptr)
    {
        FreeLibrary(m_hModule);
        m_hModule = nullptr;
    }
}
