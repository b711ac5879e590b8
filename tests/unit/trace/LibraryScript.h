// Scripts the loading of libraries for the test program and keeps the calls, in order.
#pragma once

#include <windows.h>

#include <cstdint>
#include <string>
#include <vector>

#include "support/ImportPatch.h"

class CLibraryScript
{
public:
    CLibraryScript() { s_pThis = this; }
    CLibraryScript(const CLibraryScript&) = delete;
    CLibraryScript& operator=(const CLibraryScript&) = delete;

    // A handle that the system knows nothing of.
    static HMODULE Handle(std::uintptr_t number) { return reinterpret_cast<HMODULE>(number << 16); }

    // What the calls answer.
    std::wstring modulePath = L"C:\\folder\\module.dll";
    HMODULE hLoaded = nullptr;

    // What the calls were, as "Function argument".
    const std::vector<std::wstring>& Calls() const { return m_calls; }
    HMODULE Owner() const { return m_hOwner; }
    DWORD BufferSize() const { return m_cchBuffer; }
    void Forget() { m_calls.clear(); }

private:
    static HMODULE WINAPI ScriptedLoadLibrary(LPCWSTR path)
    {
        s_pThis->m_calls.push_back(std::wstring(L"LoadLibraryW ") + path);
        SetLastError(ERROR_MOD_NOT_FOUND);
        return s_pThis->hLoaded;
    }

    static BOOL WINAPI ScriptedFreeLibrary(HMODULE hModule)
    {
        s_pThis->m_calls.push_back(L"FreeLibrary " +
                                   std::to_wstring(reinterpret_cast<std::uintptr_t>(hModule) >> 16));
        return TRUE;
    }

    static HMODULE WINAPI ScriptedGetModuleHandle(LPCWSTR name)
    {
        if (name == nullptr)
        {
            return s_pThis->m_moduleHandle.Original<decltype(ScriptedGetModuleHandle)>()(name);
        }
        s_pThis->m_calls.push_back(std::wstring(L"GetModuleHandleW ") + name);
        return Handle(0x77);
    }

    static DWORD WINAPI ScriptedGetModuleFileName(HMODULE hModule, LPWSTR buffer, DWORD cch)
    {
        s_pThis->m_calls.push_back(L"GetModuleFileNameW");
        s_pThis->m_hOwner = hModule;
        s_pThis->m_cchBuffer = cch;
        const std::wstring& path = s_pThis->modulePath;
        if (path.size() < cch)
        {
            path.copy(buffer, path.size());
            buffer[path.size()] = L'\0';
            return static_cast<DWORD>(path.size());
        }
        // As older systems do, without a terminator.
        path.copy(buffer, cch);
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return cch;
    }

    static inline CLibraryScript* s_pThis = nullptr;
    std::vector<std::wstring> m_calls;
    HMODULE m_hOwner = nullptr;
    DWORD m_cchBuffer = 0;
    const HMODULE m_hProgram = GetModuleHandleW(nullptr);
    CImportPatch m_load{m_hProgram, "LoadLibraryW", ScriptedLoadLibrary};
    CImportPatch m_free{m_hProgram, "FreeLibrary", ScriptedFreeLibrary};
    CImportPatch m_moduleHandle{m_hProgram, "GetModuleHandleW", ScriptedGetModuleHandle};
    CImportPatch m_fileName{m_hProgram, "GetModuleFileNameW", ScriptedGetModuleFileName};
};
