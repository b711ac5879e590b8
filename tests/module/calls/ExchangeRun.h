// One exchange of the built module, in a host that polls to the end, takes the answer and releases.
#pragma once

#include <atomic>

#include "module/calls/SeenModule.h"

inline constexpr ExchangeKind kExchangeKinds[] = {EXCHANGE_TEXT,   EXCHANGE_FILE,      EXCHANGE_REDIRECT,
                                                  EXCHANGE_DIALOG, EXCHANGE_DISCOVERY, EXCHANGE_RELEASE,
                                                  EXCHANGE_QUIT};

class CExchangeRun : public CSeenModule
{
public:
    // With the trace library or without.
    CExchangeRun(ExchangeKind kind, const CProxyUser& user, bool bTraces);
    ~CExchangeRun();

    // Runs it, and says how it has ended, one letter for each thing:
    //   0 2 3 7  that status in the end
    //   9        done, with the whole answer
    //   s        done, with less than the answer
    //   e        a form was sent without its data
    //   E        done; taking the answer raises out of memory
    //   P        the post was refused
    //   N        no component was made
    //   R        released before its end
    std::string Run();

private:
    std::string Exchange(IHttpRaw* pHttpRaw);
    std::string AwaitEnd(IHttpRaw* pHttpRaw);
    std::string TakeAnswer(IHttpRaw* pHttpRaw, bool bDone);
    std::string JudgeForms();
    void OnCall(const CCallRow& row, bool bBehind);
    void OnHostCall(const CCallRow& row, bool bBehind);
    void Hold();
    bool AwaitSecondRead() const;

    const DWORD m_dwHost = GetCurrentThreadId();
    const HANDLE m_hHeld = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    const HANDLE m_hLetGo = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    bool m_bInside = false;  // the worker's own: no longer under the lock of the platform's loader
    std::atomic<bool> m_bKills{false};
};
