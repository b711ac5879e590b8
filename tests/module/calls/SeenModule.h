// The built module over a scripted platform whose every call is seen, from its loading until it is unloaded,
// and what it has left then.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "support/BuiltModule.h"
#include "support/calls/PlatformCalls.h"
#include "support/Journal.h"
#include "support/RecordedTrace.h"
#include "support/ScriptedConsole.h"
#include "support/ScriptedShell.h"
#include "support/ScriptedSystem.h"
#include "support/ScriptedWinInet.h"
#include "system/proxy/ProxyUser.h"

enum ExchangeKind
{
    EXCHANGE_TEXT,       // the answer is taken as text
    EXCHANGE_FILE,       // it goes into a file
    EXCHANGE_REDIRECT,   // the first server names a second one
    EXCHANGE_DIALOG,     // the user accepts what is wrong with the server
    EXCHANGE_DISCOVERY,  // the console user's browser is Firefox, with a proxy
    EXCHANGE_RELEASE,    // the component is released while a file arrives
    EXCHANGE_QUIT,       // it is released by a host that quits, under a worker that nothing wakes
};
const char* NameOf(ExchangeKind kind);

// What discovery reads of Firefox.
void BrowseWithManualProxy(const CProxyUser& user);

class CSeenModule
{
public:
    // The user is the one whose settings discovery reads.
    CSeenModule(ExchangeKind kind, const CProxyUser& user);
    ~CSeenModule();
    CSeenModule(const CSeenModule&) = delete;
    CSeenModule& operator=(const CSeenModule&) = delete;

    CPlatformCalls& Calls() { return *m_pCalls; }

    // What should not have happened.
    std::vector<std::string> Faults() const;

protected:
    static constexpr wchar_t kFile[] = L"C:\\target";
    static constexpr char kAnswer[] = "the answer";

    // From any thread.
    void Expect(bool bTrue, const std::string& fault);
    // What the component sends, as it is set before a post.
    void Prepare(IHttpRaw* pHttpRaw) const;
    static constexpr wchar_t kUrl[] = L"http://127.0.0.1/p";
    static constexpr wchar_t kData[] = L"a=1";
    unsigned long Poll(IHttpRaw* pHttpRaw);
    // The answer in memory; nothing when there is none. It is taken from the ledger.
    std::optional<std::string> Take(IHttpRaw* pHttpRaw);

    // After the module has been unloaded.
    void JudgeFaults();
    // Before that: a killed worker leaves its reference to the module. True when there was such a worker.
    bool DropReferencesOfKilled();
    void JudgeLeftovers();

    const ExchangeKind m_kind;
    CJournal m_journal;
    CScriptedWinInet m_winInet{m_journal};
    CScriptedSystem m_system{m_journal};
    CRecordedTrace m_trace{m_journal};
    std::unique_ptr<CBuiltModule> m_pModule;
    std::unique_ptr<CPlatformCalls> m_pCalls;

private:
    void Script(const CProxyUser& user);

    std::optional<CScriptedShell> m_shell;
    std::optional<CScriptedConsole> m_console;
    mutable CMutex m_mutex;
    std::vector<std::string> m_faults;
};
