// The rest of the platform as a test scripts it: the tick counter, the start of threads, the download file,
// the version, registry keys, windows and cursors. Calls go to the journal; what the product asks for beside
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
    explicit CScriptedSystem(CJournal& journal) : m_journal(journal) { s_pCurrent = this; }
    ~CScriptedSystem();
    CScriptedSystem(const CScriptedSystem&) = delete;
    CScriptedSystem& operator=(const CScriptedSystem&) = delete;

    // Replaces what the module uses of it.
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
    // Whether all have ended by now.
    bool HaveThreadsEnded() const;
    // Counted from 0 in the order of their start: the object that it was started on, and its exit code, for
    // which its end is waited for; STILL_ACTIVE when that does not come in time.
    void* Worker(size_t nth) const;
    DWORD ExitCode(size_t nth);
    // The object that the last thread was started on.
    void* Worker() const;

    // The download file. Contents are kept here, nothing is written to the disk.
    std::atomic<bool> m_bFilesFail{false};
    CScript<std::optional<DWORD>> m_writes{std::nullopt};  // bytes that are reported as written; absent: all
    std::string FileContent() const;
    bool IsFileOpen() const { return m_bFileOpen; }

    // Without settings no default browser is found. With them discovery reads the registry of the test
    // process, as Windows 5.2 would: the plain hive of the process.
    std::atomic<bool> m_bHasSettings{false};
    std::atomic<DWORD> m_dwMajorVersion{5};

    // Windows that exist, by number.
    std::set<int> m_windows;

private:
    struct Platform;

    struct Thread
    {
        void* pObject;
        HANDLE hThread;
        std::shared_ptr<CGate> gate;
    };

    static inline CScriptedSystem* s_pCurrent = nullptr;

    CJournal& m_journal;
    mutable CMutex m_mutex;
    std::vector<Thread> m_threads;
    size_t m_cEnded = 0;  // of the first threads, which need no wait any more
    std::string m_content;
    std::atomic<bool> m_bFileOpen{false};
};
