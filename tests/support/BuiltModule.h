// The built module as a host gets it, but with no registration: loaded from beside the test program, its
// component made through DllGetClassObject. Its imports can be replaced; loading it anew per test makes
// the module's own process-wide state fresh.
#pragma once

#include <windows.h>

#include <memory>
#include <string>
#include <vector>

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

    HMODULE Handle() const { return m_hModule; }

    // The folder it was loaded from, with no backslash at its end.
    static std::wstring Folder();

    template <typename Function>
    void Patch(const char* pszFunction, Function* pfnReplacement)
    {
        m_patches.push_back(std::make_unique<CImportPatch>(m_hModule, pszFunction, pfnReplacement));
    }

    // Null when the module does not make one.
    IHttpRaw* CreateHttpRaw() const;

private:
    HMODULE m_hModule;
    std::vector<std::unique_ptr<CImportPatch>> m_patches;
};
