// The built module as a host gets it, but with no registration: loaded from beside the test program, its
// component made through DllGetClassObject. Its imports can be replaced; loading it anew per test makes
// the module's own process-wide state fresh.
#pragma once

#include <windows.h>

#include <string>

#include "kvHttp/HttpRaw.h"
#include "support/ImportPatch.h"

class CBuiltModule
{
public:
    CBuiltModule();
    // Unloads the module, with its replaced imports still in place. All its threads must have ended.
    ~CBuiltModule();
    CBuiltModule(const CBuiltModule&) = delete;
    CBuiltModule& operator=(const CBuiltModule&) = delete;

    // Gives the host's reference back already; only the destructor looks whether the module has gone.
    void Free();

    HMODULE Handle() const { return m_hModule; }

    // The folder it was loaded from, with no backslash at its end.
    static std::wstring Folder();

    CImportPatches& Imports() { return m_imports; }

    // Null when the module does not make one.
    IHttpRaw* CreateHttpRaw() const;

private:
    HMODULE m_hModule;
    bool m_bFreed = false;
    CImportPatches m_imports{m_hModule};
};
