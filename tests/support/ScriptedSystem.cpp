#include "support/ScriptedSystem.h"

#include <process.h>

#include "support/CallText.h"
#include "support/WindowNames.h"

namespace
{

CScriptedSystem* g_pSystem = nullptr;

const HANDLE kFile = reinterpret_cast<HANDLE>(INT_PTR{0xF11E0});

struct StartedThread
{
    std::shared_ptr<CGate> gate;
    unsigned(__stdcall* start)(void*);
    void* argument;
};

unsigned __stdcall HeldThreadProc(void* argument)
{
    const std::unique_ptr<StartedThread> owned(static_cast<StartedThread*>(argument));
    const StartedThread thread = *owned;
    owned.get()->gate->Wait();
    return thread.start(thread.argument);
}

DWORD WINAPI ScriptedGetTickCount()
{
    return g_pSystem->m_dwTick;
}

uintptr_t __cdecl ScriptedBeginThread(void* security, unsigned stack, unsigned(__stdcall* start)(void*),
                                      void* argument, unsigned flags, unsigned* pId)
{
    return g_pSystem->StartThread(security, stack, start, argument, flags, pId);
}

HANDLE WINAPI ScriptedCreateFile(LPCWSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security,
                                 DWORD disposition, DWORD attributes, HANDLE hTemplate)
{
    return g_pSystem->CreateDownloadFile(path, access, share, security, disposition, attributes, hTemplate);
}

BOOL WINAPI ScriptedWriteFile(HANDLE file, LPCVOID data, DWORD cb, LPDWORD pcbWritten,
                              LPOVERLAPPED overlapped)
{
    return g_pSystem->WriteDownloadFile(file, data, cb, pcbWritten, overlapped);
}

BOOL WINAPI ScriptedCloseHandle(HANDLE handle)
{
    return g_pSystem->CloseAnyHandle(handle);
}

BOOL WINAPI ScriptedDeleteFile(LPCWSTR path)
{
    return g_pSystem->DeleteDownloadFile(path);
}

BOOL WINAPI ScriptedGetVersion(OSVERSIONINFOW* pInformation)
{
    pInformation->dwMajorVersion = 5;
    pInformation->dwMinorVersion = 2;
    pInformation->dwPlatformId = VER_PLATFORM_WIN32_NT;
    return TRUE;
}

LONG WINAPI ScriptedRegOpenKey(HKEY hRoot, LPCWSTR subkey, DWORD options, REGSAM access, HKEY* phKey)
{
    return g_pSystem->OpenKey(hRoot, subkey, options, access, phKey);
}

BOOL WINAPI ScriptedIsWindow(HWND hWnd)
{
    return g_pSystem->IsScriptedWindow(hWnd);
}

HWND WINAPI ScriptedGetDesktopWindow()
{
    return g_pSystem->Desktop();
}

// The wait cursor would make Wine start a desktop, which outlives the test and holds its output open.
HCURSOR WINAPI ScriptedLoadCursor(HINSTANCE /*hInstance*/, LPCWSTR /*name*/)
{
    return nullptr;
}

HCURSOR WINAPI ScriptedSetCursor(HCURSOR /*hCursor*/)
{
    return nullptr;
}

}  // namespace

CScriptedSystem::CScriptedSystem(CJournal& journal) : m_journal(journal)
{
    g_pSystem = this;
}

CScriptedSystem::~CScriptedSystem()
{
    for (const HANDLE hThread : m_threads)
    {
        CloseHandle(hThread);
    }
    g_pSystem = nullptr;
}

void CScriptedSystem::Attach(CImportPatches& imports)
{
    imports.Add("GetTickCount", ScriptedGetTickCount);
    imports.Add("_beginthreadex", ScriptedBeginThread);
    imports.Add("CreateFileW", ScriptedCreateFile);
    imports.Add("WriteFile", ScriptedWriteFile);
    imports.Add("CloseHandle", ScriptedCloseHandle);
    imports.Add("DeleteFileW", ScriptedDeleteFile);
    imports.Add("GetVersionExW", ScriptedGetVersion);
    imports.Add("RegOpenKeyExW", ScriptedRegOpenKey);
    imports.Add("IsWindow", ScriptedIsWindow);
    imports.Add("GetDesktopWindow", ScriptedGetDesktopWindow);
    imports.Add("LoadCursorW", ScriptedLoadCursor);
    imports.Add("SetCursor", ScriptedSetCursor);
}

void CScriptedSystem::LetGo()
{
    const std::lock_guard lock(m_mutex);
    for (const std::shared_ptr<CGate>& gate : m_gates)
    {
        gate->Open();
    }
    m_gates.clear();
}

bool CScriptedSystem::WaitForThreads()
{
    std::vector<HANDLE> threads;
    {
        const std::lock_guard lock(m_mutex);
        threads.swap(m_threads);
    }
    const auto patience = std::chrono::duration_cast<std::chrono::milliseconds>(kPatience);
    bool bEnded = true;
    for (const HANDLE hThread : threads)
    {
        bEnded &= WaitForSingleObject(hThread, static_cast<DWORD>(patience.count())) == WAIT_OBJECT_0;
        CloseHandle(hThread);
    }
    return bEnded;
}

std::string CScriptedSystem::FileContent() const
{
    const std::lock_guard lock(m_mutex);
    return m_content;
}

uintptr_t CScriptedSystem::StartThread(void* security, unsigned stack, unsigned(__stdcall* start)(void*),
                                       void* argument, unsigned flags, unsigned* pId)
{
    m_journal.Add(
        CALL_THREAD,
        CallText("_beginthreadex", {NullOr(security, "security"), std::to_string(stack),
                                    NullOr(reinterpret_cast<void*>(start), "start"),
                                    NullOr(argument, "object"), std::to_string(flags), NullOr(pId, "id")}));
    if (m_bThreadsFail)
    {
        return 0;
    }
    const auto gate = std::make_shared<CGate>();
    auto thread = std::make_unique<StartedThread>(StartedThread{gate, start, argument});
    const uintptr_t handle = _beginthreadex(security, stack, HeldThreadProc, thread.get(), flags, pId);
    if (handle == 0)
    {
        return 0;
    }
    static_cast<void>(thread.release());  // the thread's own now
    HANDLE hCopy = nullptr;
    DuplicateHandle(GetCurrentProcess(), reinterpret_cast<HANDLE>(handle), GetCurrentProcess(), &hCopy, 0,
                    FALSE, DUPLICATE_SAME_ACCESS);
    const std::lock_guard lock(m_mutex);
    m_pWorker = argument;
    m_threads.push_back(hCopy);
    if (m_bThreadsHeld)
    {
        m_gates.push_back(gate);
    }
    else
    {
        gate->Open();
    }
    return handle;
}

HANDLE CScriptedSystem::CreateDownloadFile(const wchar_t* path, DWORD access, DWORD share,
                                           const void* security, DWORD disposition, DWORD attributes,
                                           HANDLE hTemplate)
{
    m_journal.Add(CALL_FILE,
                  CallText("CreateFileW", {Quoted(path), Hex(access), std::to_string(share),
                                           NullOr(security, "security"), std::to_string(disposition),
                                           std::to_string(attributes), NullOr(hTemplate, "template")}));
    if (m_bFilesFail)
    {
        SetLastError(ERROR_PATH_NOT_FOUND);
        return INVALID_HANDLE_VALUE;
    }
    m_bFileOpen = true;
    const std::lock_guard lock(m_mutex);
    m_content.clear();
    return kFile;
}

BOOL CScriptedSystem::WriteDownloadFile(HANDLE file, const void* data, DWORD cb, DWORD* pcbWritten,
                                        void* overlapped)
{
    if (file != kFile)
    {
        return WriteFile(file, data, cb, pcbWritten, static_cast<LPOVERLAPPED>(overlapped));
    }
    m_journal.Add(CALL_FILE,
                  CallText("WriteFile", {"file", std::to_string(cb), NullOr(overlapped, "overlapped")}));
    const DWORD dwWritten = m_writes.Next().value_or(cb);
    *pcbWritten = dwWritten;
    const std::lock_guard lock(m_mutex);
    m_content.append(static_cast<const char*>(data), dwWritten);
    return TRUE;
}

BOOL CScriptedSystem::CloseAnyHandle(HANDLE handle)
{
    if (handle != kFile)
    {
        return CloseHandle(handle);
    }
    m_journal.Add(CALL_FILE, CallText("CloseHandle", {"file"}));
    m_bFileOpen = false;
    return TRUE;
}

BOOL CScriptedSystem::DeleteDownloadFile(const wchar_t* path)
{
    m_journal.Add(CALL_FILE, CallText("DeleteFileW", {Quoted(path)}));
    return TRUE;
}

LONG CScriptedSystem::OpenKey(HKEY hRoot, const wchar_t* subkey, DWORD options, DWORD access, HKEY* phKey)
{
    return m_bHasSettings ? RegOpenKeyExW(hRoot, subkey, options, access, phKey) : ERROR_FILE_NOT_FOUND;
}

BOOL CScriptedSystem::IsScriptedWindow(HWND hWnd)
{
    m_journal.Add(CALL_WINDOW, CallText("IsWindow", {WindowName(hWnd)}));
    for (const int number : m_windows)
    {
        if (hWnd == FakeWindow(number))
        {
            return TRUE;
        }
    }
    return FALSE;
}

HWND CScriptedSystem::Desktop()
{
    m_journal.Add(CALL_WINDOW, CallText("GetDesktopWindow", {}));
    return FakeWindow(0);
}
