#include "support/ScriptedSystem.h"

#include <process.h>

#include "support/CallText.h"
#include "support/WindowNames.h"

namespace
{

CScriptedSystem* g_pSystem = nullptr;

const HANDLE kFile = reinterpret_cast<HANDLE>(INT_PTR{0xF11E0});
const HMODULE kTraceLibrary = reinterpret_cast<HMODULE>(INT_PTR{0x7ACE0000});

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

HMODULE WINAPI ScriptedLoadLibrary(LPCWSTR path)
{
    return g_pSystem->LoadTraceLibrary(path);
}

BOOL WINAPI ScriptedFreeLibrary(HMODULE hModule)
{
    return g_pSystem->FreeAnyLibrary(hModule);
}

FARPROC WINAPI ScriptedGetProcAddress(HMODULE hModule, LPCSTR name)
{
    return g_pSystem->FindExport(hModule, name);
}

HMODULE WINAPI ScriptedGetModuleHandle(LPCWSTR name)
{
    return g_pSystem->FindModule(name);
}

void __stdcall TraceExport(unsigned long level, unsigned long second, unsigned long third, const char* text)
{
    g_pSystem->AddTrace(level, second, third, text);
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

void CScriptedSystem::Attach(CBuiltModule& module)
{
    module.Patch("GetTickCount", ScriptedGetTickCount);
    module.Patch("_beginthreadex", ScriptedBeginThread);
    module.Patch("CreateFileW", ScriptedCreateFile);
    module.Patch("WriteFile", ScriptedWriteFile);
    module.Patch("CloseHandle", ScriptedCloseHandle);
    module.Patch("DeleteFileW", ScriptedDeleteFile);
    module.Patch("GetVersionExW", ScriptedGetVersion);
    module.Patch("RegOpenKeyExW", ScriptedRegOpenKey);
    module.Patch("IsWindow", ScriptedIsWindow);
    module.Patch("GetDesktopWindow", ScriptedGetDesktopWindow);
    module.Patch("LoadCursorW", ScriptedLoadCursor);
    module.Patch("SetCursor", ScriptedSetCursor);
    module.Patch("LoadLibraryW", ScriptedLoadLibrary);
    module.Patch("FreeLibrary", ScriptedFreeLibrary);
    module.Patch("GetProcAddress", ScriptedGetProcAddress);
    module.Patch("GetModuleHandleW", ScriptedGetModuleHandle);
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

HMODULE CScriptedSystem::LoadTraceLibrary(const wchar_t* path)
{
    m_journal.Add(CALL_LIBRARY, CallText("LoadLibraryW", {Quoted(path)}));
    m_bTraceLoaded = m_bTraceLibrary;
    return m_bTraceLibrary ? kTraceLibrary : nullptr;
}

BOOL CScriptedSystem::FreeAnyLibrary(HMODULE hModule)
{
    if (hModule != kTraceLibrary)
    {
        return FreeLibrary(hModule);
    }
    m_journal.Add(CALL_LIBRARY, CallText("FreeLibrary", {"trace"}));
    m_bTraceLoaded = false;
    return TRUE;
}

FARPROC CScriptedSystem::FindExport(HMODULE hModule, const char* name)
{
    if (hModule != kTraceLibrary)
    {
        return GetProcAddress(hModule, name);
    }
    m_journal.Add(CALL_LIBRARY, CallText("GetProcAddress", {"trace", name}));
    return m_traceExports.Next() ? reinterpret_cast<FARPROC>(reinterpret_cast<void*>(TraceExport)) : nullptr;
}

HMODULE CScriptedSystem::FindModule(const wchar_t* name)
{
    if (name != nullptr && ToUtf8(name).find("qnz") != std::string::npos)
    {
        m_journal.Add(CALL_LIBRARY, CallText("GetModuleHandleW", {Quoted(name)}));
    }
    return GetModuleHandleW(name);
}

void CScriptedSystem::AddTrace(unsigned long level, unsigned long second, unsigned long third,
                               const char* text)
{
    const std::string zeros = second == 0 && third == 0 ? "" : "(nonzero)";
    m_journal.Add(CALL_TRACE, std::to_string(level) + zeros + "|" + text);
}
