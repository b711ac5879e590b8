// The rest of the platform as a test scripts it: the tick counter, the start of threads, the download
// file and windows. Calls go to the journal; what the product asks for beside
// these goes to the platform itself.
#pragma once

#include <windows.h>

#include <atomic>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "support/Gate.h"
#include "support/ImportPatch.h"
#include "support/Journal.h"
#include "support/Mutex.h"
#include "support/Script.h"

class CScriptedSystem
{
public:
    explicit CScriptedSystem(CJournal& journal);
    ~CScriptedSystem();
    CScriptedSystem(const CScriptedSystem&) = delete;
    CScriptedSystem& operator=(const CScriptedSystem&) = delete;

    void Attach(CImportPatches& imports);

    // What GetTickCount gives; it moves only by the test's hand.
    std::atomic<DWORD> m_dwTick{100000};

    // Threads. A worker is held before its first instruction until LetGo, so that what the host does in
    // its sending call always comes first.
    std::atomic<bool> m_bThreadsFail{false};
    std::atomic<bool> m_bThreadsHeld{true};
    void LetGo();
    // False when a started thread does not end in time.
    bool WaitForThreads();
    // The object that the last thread was started on.
    void* Worker() const { return m_pWorker; }

    // The download file. Contents are kept here, nothing is written to the disk.
    std::atomic<bool> m_bFilesFail{false};
    CScript<std::optional<DWORD>> m_writes{std::nullopt};  // bytes that are reported as written; absent: all
    std::string FileContent() const;
    bool IsFileOpen() const { return m_bFileOpen; }

    // Without settings no default browser is found. With them discovery reads the registry of the test
    // process, as Windows 5.2 would: the plain hive of the process.
    std::atomic<bool> m_bHasSettings{false};

    // Windows that exist, by number.
    std::set<int> m_windows;

    // What stands behind the scripted functions.
    uintptr_t StartThread(void* security, unsigned stack, unsigned(__stdcall* start)(void*), void* argument,
                          unsigned flags, unsigned* pId);
    HANDLE CreateDownloadFile(const wchar_t* path, DWORD access, DWORD share, const void* security,
                              DWORD disposition, DWORD attributes, HANDLE hTemplate);
    BOOL WriteDownloadFile(HANDLE file, const void* data, DWORD cb, DWORD* pcbWritten, void* overlapped);
    BOOL CloseAnyHandle(HANDLE handle);
    BOOL DeleteDownloadFile(const wchar_t* path);
    LONG OpenKey(HKEY hRoot, const wchar_t* subkey, DWORD options, DWORD access, HKEY* phKey);
    BOOL IsScriptedWindow(HWND hWnd);
    HWND Desktop();

private:
    CJournal& m_journal;
    mutable CMutex m_mutex;
    std::vector<HANDLE> m_threads;
    std::vector<std::shared_ptr<CGate>> m_gates;
    void* m_pWorker = nullptr;
    std::string m_content;
    std::atomic<bool> m_bFileOpen{false};
};
