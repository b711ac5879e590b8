#include "support/ScriptedSystem.h"

#include <process.h>

#include <algorithm>

#include "support/CallText.h"
#include "support/WindowNames.h"

namespace
{

const HANDLE kFile = reinterpret_cast<HANDLE>(INT_PTR{0xF11E0});

using StartProc = unsigned(__stdcall*)(void*);

struct HeldStart
{
    std::shared_ptr<CGate> gate;
    StartProc start;
    void* argument;
};

unsigned __stdcall HeldThreadProc(void* argument)
{
    const std::unique_ptr<HeldStart> owned(static_cast<HeldStart*>(argument));
    owned->gate->Wait();
    return owned->start(owned->argument);
}

}  // namespace

// Each function takes its place among all calls first, and then acts.
struct CScriptedSystem::Platform
{
    static void Add(CallKind kind, const char* pszFunction, std::initializer_list<std::string> arguments)
    {
        s_pCurrent->m_journal.Add(kind, CallText(pszFunction, arguments));
    }

    static DWORD WINAPI TickCount() { return s_pCurrent->m_dwTick; }

    static uintptr_t __cdecl BeginThread(void* security, unsigned stack, StartProc start, void* argument,
                                         unsigned flags, unsigned* pId)
    {
        Add(CALL_THREAD, "_beginthreadex",
            {NullOr(security, "security"), std::to_string(stack),
             NullOr(reinterpret_cast<void*>(start), "start"), NullOr(argument, "object"),
             std::to_string(flags), NullOr(pId, "id")});
        if (s_pCurrent->m_bThreadsFail)
        {
            return 0;
        }
        const auto gate = std::make_shared<CGate>();
        auto held = std::make_unique<HeldStart>(HeldStart{gate, start, argument});
        const uintptr_t handle = s_pfnBeginThread(security, stack, HeldThreadProc, held.get(), flags, pId);
        if (handle == 0)
        {
            return 0;
        }
        static_cast<void>(held.release());  // the thread's own now
        HANDLE hCopy = nullptr;
        DuplicateHandle(GetCurrentProcess(), reinterpret_cast<HANDLE>(handle), GetCurrentProcess(), &hCopy, 0,
                        FALSE, DUPLICATE_SAME_ACCESS);
        const std::lock_guard lock(s_pCurrent->m_mutex);
        s_pCurrent->m_threads.push_back({argument, hCopy, gate});
        if (!s_pCurrent->m_bThreadsHeld)
        {
            gate->Open();
        }
        return handle;
    }

    static HANDLE WINAPI MakeFile(LPCWSTR path, DWORD dwAccess, DWORD dwShare, LPSECURITY_ATTRIBUTES security,
                                  DWORD dwDisposition, DWORD dwAttributes, HANDLE hTemplate)
    {
        Add(CALL_FILE, "CreateFileW",
            {Quoted(path), Hex(dwAccess), std::to_string(dwShare), NullOr(security, "security"),
             std::to_string(dwDisposition), std::to_string(dwAttributes), NullOr(hTemplate, "template")});
        if (s_pCurrent->m_bFilesFail)
        {
            SetLastError(ERROR_PATH_NOT_FOUND);
            return INVALID_HANDLE_VALUE;
        }
        s_pCurrent->m_bFileOpen = true;
        const std::lock_guard lock(s_pCurrent->m_mutex);
        s_pCurrent->m_content.clear();
        return kFile;
    }

    static BOOL WINAPI Write(HANDLE file, LPCVOID data, DWORD cb, LPDWORD pcbWritten, LPOVERLAPPED overlapped)
    {
        if (file != kFile)
        {
            return s_pfnWriteFile(file, data, cb, pcbWritten, overlapped);
        }
        Add(CALL_FILE, "WriteFile", {"file", std::to_string(cb), NullOr(overlapped, "overlapped")});
        *pcbWritten = s_pCurrent->m_writes.Next().value_or(cb);
        const std::lock_guard lock(s_pCurrent->m_mutex);
        s_pCurrent->m_content.append(static_cast<const char*>(data), *pcbWritten);
        return TRUE;
    }

    static BOOL WINAPI Close(HANDLE handle)
    {
        if (handle != kFile)
        {
            return s_pfnCloseHandle(handle);
        }
        Add(CALL_FILE, "CloseHandle", {"file"});
        s_pCurrent->m_bFileOpen = false;
        return TRUE;
    }

    static BOOL WINAPI Delete(LPCWSTR path)
    {
        Add(CALL_FILE, "DeleteFileW", {Quoted(path)});
        return TRUE;
    }

    static BOOL WINAPI Version(OSVERSIONINFOW* pInformation)
    {
        pInformation->dwMajorVersion = s_pCurrent->m_dwMajorVersion;
        pInformation->dwMinorVersion = s_pCurrent->m_dwMajorVersion == 5 ? 2 : 1;
        pInformation->dwPlatformId = VER_PLATFORM_WIN32_NT;
        return TRUE;
    }

    static LONG WINAPI OpenKey(HKEY hRoot, LPCWSTR subkey, DWORD dwOptions, REGSAM access, HKEY* phKey)
    {
        return s_pCurrent->m_bHasSettings ? s_pfnOpenKey(hRoot, subkey, dwOptions, access, phKey)
                                          : ERROR_FILE_NOT_FOUND;
    }

    static BOOL WINAPI IsAWindow(HWND hWnd)
    {
        Add(CALL_WINDOW, "IsWindow", {WindowName(hWnd)});
        for (const int number : s_pCurrent->m_windows)
        {
            if (hWnd == FakeWindow(number))
            {
                return TRUE;
            }
        }
        return FALSE;
    }

    static HWND WINAPI Desktop()
    {
        Add(CALL_WINDOW, "GetDesktopWindow", {});
        return FakeWindow(0);
    }

    // The wait cursor would make Wine start a desktop, which outlives the test and holds its output open.
    static HCURSOR WINAPI FindCursor(HINSTANCE /*hInstance*/, LPCWSTR /*name*/) { return nullptr; }
    static HCURSOR WINAPI ShowThatCursor(HCURSOR /*hCursor*/) { return nullptr; }

    static inline decltype(&BeginThread) s_pfnBeginThread = nullptr;
    static inline decltype(&Write) s_pfnWriteFile = nullptr;
    static inline decltype(&Close) s_pfnCloseHandle = nullptr;
    static inline decltype(&OpenKey) s_pfnOpenKey = nullptr;
};

CScriptedSystem::~CScriptedSystem()
{
    for (const Thread& thread : m_threads)
    {
        CloseHandle(thread.hThread);
    }
    s_pCurrent = nullptr;
}

void CScriptedSystem::Attach(CImportPatches& imports)
{
    imports.Add("GetTickCount", Platform::TickCount);
    Platform::s_pfnBeginThread = imports.Add("_beginthreadex", Platform::BeginThread);
    imports.Add("CreateFileW", Platform::MakeFile);
    Platform::s_pfnWriteFile = imports.Add("WriteFile", Platform::Write);
    Platform::s_pfnCloseHandle = imports.Add("CloseHandle", Platform::Close);
    imports.Add("DeleteFileW", Platform::Delete);
    imports.AddIfImported("GetVersionExW", Platform::Version);
    Platform::s_pfnOpenKey = imports.AddIfImported("RegOpenKeyExW", Platform::OpenKey);
    imports.Add("IsWindow", Platform::IsAWindow);
    imports.Add("GetDesktopWindow", Platform::Desktop);
    imports.Add("LoadCursorW", Platform::FindCursor);
    imports.Add("SetCursor", Platform::ShowThatCursor);
}

void CScriptedSystem::LetGo()
{
    const std::lock_guard lock(m_mutex);
    for (const Thread& thread : m_threads)
    {
        thread.gate->Open();
    }
}

bool CScriptedSystem::WaitForThreads()
{
    while (m_cEnded < m_threads.size() && ExitCode(m_cEnded) != STILL_ACTIVE)
    {
        ++m_cEnded;
    }
    return m_cEnded == m_threads.size();
}

bool CScriptedSystem::HaveThreadsEnded() const
{
    const std::lock_guard lock(m_mutex);
    return std::all_of(m_threads.begin(), m_threads.end(), [](const Thread& thread)
                       { return WaitForSingleObject(thread.hThread, 0) == WAIT_OBJECT_0; });
}

void* CScriptedSystem::Worker(size_t nth) const
{
    const std::lock_guard lock(m_mutex);
    return m_threads.at(nth).pObject;
}

void* CScriptedSystem::Worker() const
{
    const std::lock_guard lock(m_mutex);
    return m_threads.empty() ? nullptr : m_threads.back().pObject;
}

std::string CScriptedSystem::FileContent() const
{
    const std::lock_guard lock(m_mutex);
    return m_content;
}

DWORD CScriptedSystem::ExitCode(size_t nth)
{
    HANDLE hThread = nullptr;
    {
        const std::lock_guard lock(m_mutex);
        hThread = m_threads.at(nth).hThread;
    }
    const auto patience = std::chrono::duration_cast<std::chrono::milliseconds>(kPatience);
    WaitForSingleObject(hThread, static_cast<DWORD>(patience.count()));
    DWORD dwCode = STILL_ACTIVE;
    GetExitCodeThread(hThread, &dwCode);
    return dwCode;
}
