#include "support/ScriptedConsole.h"

#include <algorithm>
#include <cstdio>
#include <cwchar>

namespace
{

constexpr char kUnknown[] = "unknown";

CScriptedConsole* g_pConsole = nullptr;

std::string Narrow(const wchar_t* text)
{
    std::string narrow;
    for (; text != nullptr && *text != L'\0'; ++text)
    {
        narrow += *text < 0x80 ? static_cast<char>(*text) : '?';
    }
    return narrow;
}

std::string Hex(unsigned long value)
{
    char text[16] = {};
    std::snprintf(text, sizeof(text), "0x%lX", value);
    return text;
}

std::wstring FileName(const wchar_t* path)
{
    const std::wstring text(path);
    return text.substr(text.find_last_of(L'\\') + 1);
}

HANDLE HandleOf(INT_PTR base, DWORD dwId)
{
    return reinterpret_cast<HANDLE>(base + static_cast<INT_PTR>(dwId));
}

}  // namespace

struct CScriptedConsole::Platform
{
    static inline decltype(GetProcAddress)* s_pfnGetProcAddress = nullptr;
    static inline decltype(GetModuleHandleW)* s_pfnGetModuleHandle = nullptr;
    static inline decltype(LoadLibraryW)* s_pfnLoadLibrary = nullptr;
    static inline decltype(CloseHandle)* s_pfnCloseHandle = nullptr;

    static DWORD WINAPI ScriptedGetSession()
    {
        g_pConsole->Add("WTSGetActiveConsoleSessionId()");
        return g_pConsole->m_dwConsoleSession;
    }

    static BOOL WINAPI ScriptedEnumProcesses(DWORD* pProcesses, DWORD cb, DWORD* pcbReturned)
    {
        g_pConsole->Add("EnumProcesses(" + std::to_string(cb) + ")");
        DWORD index = 0;
        for (const CScriptedProcess& process : g_pConsole->m_processes)
        {
            if (index < cb / sizeof(DWORD))
            {
                pProcesses[index++] = process.dwId;
            }
        }
        const DWORD cbTrue = index * static_cast<DWORD>(sizeof(DWORD));
        *pcbReturned = g_pConsole->m_cbEnumerated != 0 ? g_pConsole->m_cbEnumerated : cbTrue;
        return g_pConsole->m_bEnumerates ? TRUE : FALSE;
    }

    static HANDLE WINAPI ScriptedOpenProcess(DWORD dwAccess, BOOL bInherit, DWORD dwId)
    {
        const HANDLE handle = ProcessHandle(dwId);
        const CScriptedProcess* const pProcess = g_pConsole->Find(handle);
        if (pProcess == nullptr)
        {
            g_pConsole->Add("OpenProcess of one that was not enumerated");
            return nullptr;
        }
        g_pConsole->Add("OpenProcess(" + Hex(dwAccess) + ", " + std::to_string(bInherit) + ", " +
                        std::to_string(dwId) + ")");
        if (!pProcess->bOpens)
        {
            return nullptr;
        }
        g_pConsole->Open(handle, "process" + std::to_string(dwId));
        return handle;
    }

    static DWORD WINAPI ScriptedGetModuleFileNameEx(HANDLE hProcess, HMODULE hModule, LPWSTR pszPath,
                                                    DWORD cch)
    {
        g_pConsole->Add("GetModuleFileNameExW(" + g_pConsole->Name(hProcess) +
                        (hModule == nullptr ? ", null, " : ", a module, ") + std::to_string(cch) + ")");
        const CScriptedProcess* const pProcess = g_pConsole->Find(hProcess);
        const wchar_t* const pszKnown = pProcess != nullptr ? pProcess->pszPath : nullptr;
        const std::wstring path = pszKnown != nullptr ? pszKnown : L"C:\\windows\\explorer.exe";
        // A path that does not fit is cut as older systems do it, without a terminator.
        const DWORD length = static_cast<DWORD>(path.copy(pszPath, cch));
        if (length < cch)
        {
            pszPath[length] = L'\0';
        }
        return pszKnown != nullptr ? length : 0;
    }

    static BOOL WINAPI ScriptedOpenProcessToken(HANDLE hProcess, DWORD dwAccess, PHANDLE phToken)
    {
        g_pConsole->Add("OpenProcessToken(" + g_pConsole->Name(hProcess) + ", " + Hex(dwAccess) + ")");
        const CScriptedProcess* const pProcess = g_pConsole->Find(hProcess);
        if (pProcess == nullptr || !pProcess->bTokenOpens)
        {
            return FALSE;
        }
        *phToken = TokenHandle(pProcess->dwId);
        g_pConsole->Open(*phToken, "token" + std::to_string(pProcess->dwId));
        return TRUE;
    }

    static BOOL WINAPI ScriptedGetTokenInformation(HANDLE hToken, TOKEN_INFORMATION_CLASS informationClass,
                                                   LPVOID pInformation, DWORD cb, PDWORD pcbReturned)
    {
        g_pConsole->Add("GetTokenInformation(" + g_pConsole->Name(hToken) + ", " +
                        std::to_string(informationClass) + ", " + std::to_string(cb) + ")");
        for (const CScriptedProcess& process : g_pConsole->m_processes)
        {
            if (hToken == TokenHandle(process.dwId))
            {
                *static_cast<DWORD*>(pInformation) = process.dwSession;
                *pcbReturned = sizeof(DWORD);
                return process.bSessionKnown ? TRUE : FALSE;
            }
        }
        return FALSE;
    }

    static BOOL WINAPI ScriptedImpersonate(HANDLE hToken)
    {
        g_pConsole->Add("ImpersonateLoggedOnUser(" + g_pConsole->Name(hToken) + ")");
        SetLastError(g_pConsole->m_dwImpersonationError);
        return g_pConsole->m_dwImpersonationError == ERROR_SUCCESS ? TRUE : FALSE;
    }

    static BOOL WINAPI ScriptedRevertToSelf()
    {
        g_pConsole->Add("RevertToSelf()");
        return TRUE;
    }

    static BOOL WINAPI ScriptedGetUserName(LPWSTR pszName, LPDWORD pcch)
    {
        g_pConsole->Add("GetUserNameW(" + std::to_string(*pcch) + ")");
        if (g_pConsole->m_bUserNameFails)
        {
            std::wmemset(pszName, L'g', *pcch);
            return FALSE;
        }
        g_pConsole->m_userName.copy(pszName, g_pConsole->m_userName.size());
        pszName[g_pConsole->m_userName.size()] = L'\0';
        *pcch = static_cast<DWORD>(g_pConsole->m_userName.size() + 1);
        return TRUE;
    }

    static BOOL WINAPI ScriptedLoadUserProfile(HANDLE hToken, PROFILEINFOW* pProfile)
    {
        {
            const std::lock_guard<CMutex> lock(g_pConsole->m_mutex);
            g_pConsole->m_profile = *pProfile;
            g_pConsole->m_profileUser = pProfile->lpUserName;
        }
        g_pConsole->Add("LoadUserProfileW(" + g_pConsole->Name(hToken) + ", " + Narrow(pProfile->lpUserName) +
                        ")");
        pProfile->hProfile = g_pConsole->m_hHive;
        SetLastError(g_pConsole->m_dwProfileError);
        return g_pConsole->m_dwProfileError == ERROR_SUCCESS ? TRUE : FALSE;
    }

    static BOOL WINAPI ScriptedUnloadUserProfile(HANDLE hToken, HANDLE hProfile)
    {
        g_pConsole->Add("UnloadUserProfile(" + g_pConsole->Name(hToken) +
                        (g_pConsole->IsOpen(hToken) ? "" : " that is closed") +
                        (hProfile == g_pConsole->m_hHive ? ", hive)" : ", another)"));
        SetLastError(ERROR_INVALID_HANDLE);
        return TRUE;
    }

    static void WINAPI ScriptedOutputDebugString(LPCWSTR text) { g_pConsole->Add("Debug:" + Narrow(text)); }

    static BOOL WINAPI ScriptedCloseHandle(HANDLE handle)
    {
        if (g_pConsole->Name(handle) == kUnknown)
        {
            return s_pfnCloseHandle(handle);
        }
        const bool bOpen = g_pConsole->Close(handle);
        g_pConsole->Add((bOpen ? "CloseHandle(" : "CloseHandle of a closed handle(") +
                        g_pConsole->Name(handle) + ")");
        SetLastError(ERROR_INVALID_HANDLE);
        return TRUE;
    }

    static HMODULE WINAPI ScriptedGetModuleHandle(LPCWSTR pszName)
    {
        if (pszName == nullptr || _wcsicmp(pszName, L"kernel32.dll") != 0)
        {
            return s_pfnGetModuleHandle(pszName);
        }
        g_pConsole->Add("GetModuleHandleW(" + Narrow(pszName) + ")");
        return g_pConsole->m_bKernel32Missing ? nullptr : s_pfnGetModuleHandle(pszName);
    }

    static HMODULE WINAPI ScriptedLoadLibrary(LPCWSTR pszPath)
    {
        const std::wstring name = FileName(pszPath);
        if (name != L"userenv.dll" && name != L"advapi32.dll" && name != L"psapi.dll")
        {
            return s_pfnLoadLibrary(pszPath);
        }
        g_pConsole->Add("LoadLibraryW(" + Narrow(name.c_str()) + ")");
        return g_pConsole->m_missingLibraries.count(name) != 0 ? nullptr : s_pfnLoadLibrary(pszPath);
    }

    static FARPROC WINAPI ScriptedGetProcAddress(HMODULE hModule, LPCSTR pszName)
    {
        static const std::map<std::string, void*> kScripted = {
            {"WTSGetActiveConsoleSessionId", reinterpret_cast<void*>(&ScriptedGetSession)},
            {"EnumProcesses", reinterpret_cast<void*>(&ScriptedEnumProcesses)},
            {"GetModuleFileNameExW", reinterpret_cast<void*>(&ScriptedGetModuleFileNameEx)},
            {"OpenProcessToken", reinterpret_cast<void*>(&ScriptedOpenProcessToken)},
            {"GetTokenInformation", reinterpret_cast<void*>(&ScriptedGetTokenInformation)},
            {"LoadUserProfileW", reinterpret_cast<void*>(&ScriptedLoadUserProfile)},
            {"UnloadUserProfile", reinterpret_cast<void*>(&ScriptedUnloadUserProfile)},
            {"ImpersonateLoggedOnUser", reinterpret_cast<void*>(&ScriptedImpersonate)},
            {"RevertToSelf", reinterpret_cast<void*>(&ScriptedRevertToSelf)},
        };
        const auto found = kScripted.find(pszName);
        if (found == kScripted.end())
        {
            return s_pfnGetProcAddress(hModule, pszName);
        }
        wchar_t szPath[MAX_PATH] = {};
        GetModuleFileNameW(hModule, szPath, MAX_PATH);
        std::string library = Narrow(FileName(szPath).c_str());
        std::transform(library.begin(), library.end(), library.begin(),
                       [](char ch) { return ch >= 'A' && ch <= 'Z' ? static_cast<char>(ch + 32) : ch; });
        g_pConsole->Add("GetProcAddress(" + library + ", " + pszName + ")");
        const bool bMissing = g_pConsole->m_missingEntryPoints.count(pszName) != 0;
        return bMissing ? nullptr : reinterpret_cast<FARPROC>(found->second);
    }
};

CScriptedConsole::CScriptedConsole(CImportPatches* pImports)
    : m_processes{{4, nullptr, 0}, {20, L"C:\\windows\\explorer.exe", 1}}
{
    g_pConsole = this;
    CImportPatches& imports = pImports != nullptr ? *pImports : m_own;
    imports.Add("OutputDebugStringW", &Platform::ScriptedOutputDebugString);
    imports.Add("GetUserNameW", &Platform::ScriptedGetUserName);
    imports.Add("OpenProcess", &Platform::ScriptedOpenProcess);
    Platform::s_pfnCloseHandle = imports.Add("CloseHandle", &Platform::ScriptedCloseHandle);
    Platform::s_pfnLoadLibrary = imports.Add("LoadLibraryW", &Platform::ScriptedLoadLibrary);
    Platform::s_pfnGetModuleHandle = imports.Add("GetModuleHandleW", &Platform::ScriptedGetModuleHandle);
    Platform::s_pfnGetProcAddress = imports.Add("GetProcAddress", &Platform::ScriptedGetProcAddress);
}

CScriptedConsole::~CScriptedConsole()
{
    g_pConsole = nullptr;
}

std::vector<std::string> CScriptedConsole::Steps() const
{
    std::vector<std::string> steps;
    for (const std::string& call : m_calls)
    {
        if (call.rfind("LoadLibraryW", 0) != 0 && call.rfind("GetProcAddress", 0) != 0 &&
            call.rfind("GetModuleHandleW", 0) != 0)
        {
            steps.push_back(call);
        }
    }
    return steps;
}

std::vector<std::string> CScriptedConsole::DebugTexts() const
{
    const std::string prefix = "Debug:";
    std::vector<std::string> texts;
    for (const std::string& call : m_calls)
    {
        if (call.rfind(prefix, 0) == 0)
        {
            texts.push_back(call.substr(prefix.size()));
        }
    }
    return texts;
}

std::vector<std::string> CScriptedConsole::OpenHandles() const
{
    std::vector<std::string> names;
    for (const HANDLE handle : m_open)
    {
        names.push_back(Name(handle));
    }
    return names;
}

HANDLE CScriptedConsole::ProcessHandle(DWORD dwId)
{
    return HandleOf(0x51000000, dwId);
}

HANDLE CScriptedConsole::TokenHandle(DWORD dwId)
{
    return HandleOf(0x52000000, dwId);
}

void CScriptedConsole::Add(const std::string& call)
{
    {
        const std::lock_guard<CMutex> lock(m_mutex);
        m_calls.push_back(call);
    }
    if (m_onCall)
    {
        m_onCall(call);
    }
}

std::string CScriptedConsole::Name(HANDLE handle) const
{
    const std::lock_guard<CMutex> lock(m_mutex);
    const auto found = m_names.find(handle);
    return found != m_names.end() ? found->second : kUnknown;
}

const CScriptedProcess* CScriptedConsole::Find(HANDLE handle) const
{
    for (const CScriptedProcess& process : m_processes)
    {
        if (handle == ProcessHandle(process.dwId))
        {
            return &process;
        }
    }
    return nullptr;
}

void CScriptedConsole::Open(HANDLE handle, const std::string& name)
{
    const std::lock_guard<CMutex> lock(m_mutex);
    m_names[handle] = name;
    m_open.insert(handle);
}

bool CScriptedConsole::IsOpen(HANDLE handle) const
{
    const std::lock_guard<CMutex> lock(m_mutex);
    return m_open.count(handle) != 0;
}

bool CScriptedConsole::Close(HANDLE handle)
{
    const std::lock_guard<CMutex> lock(m_mutex);
    const auto found = m_open.find(handle);
    if (found == m_open.end())
    {
        return false;
    }
    m_open.erase(found);
    return true;
}
