// An exchange whose worker is held before or behind one of its calls, while the host makes its moves there;
// then the worker goes on. Another component's exchange runs beside it, in the middle of its answer.
#pragma once

#include <functional>

#include "module/calls/SeenModule.h"

enum Move
{
    MOVE_POLL,
    MOVE_LATE_POLL,  // after the time-out
    MOVE_TAKE,       // the answer
    MOVE_POST,       // again, elsewhere
    MOVE_SET,        // file, window and time-out
    MOVE_RELEASE,
    MOVE_FREE,  // releases, and frees the module right then
    MOVE_QUIT,  // posts WM_QUIT to its own thread, and releases
    MOVES,
};
const char* NameOf(Move move);
inline bool IsLast(Move move)
{
    return move >= MOVE_RELEASE;
}

// The calls of the worker that a host could meet are counted from 0.
struct CMeetingPoint
{
    unsigned call = 0;
    bool bBehind = false;
    std::string name;
};

class CMeetingRun : public CSeenModule
{
public:
    CMeetingRun(ExchangeKind kind, const CProxyUser& user);
    ~CMeetingRun();

    // Nobody holds the worker: where that could be done.
    std::vector<CMeetingPoint> FindPoints();
    void Meet(const CMeetingPoint& point, const std::vector<Move>& moves);

private:
    void Course(const std::vector<Move>& moves);
    void Begin();
    void Make(Move move);
    void Release(Move move);
    void PostElsewhere();
    void FinishAlone();
    void FinishOther();
    void Judge();
    void JudgeForms();
    void JudgePoll();

    void OnCall(const CCallRow& row, bool bBehind);
    void OnWorkerCall(const CCallRow& row, bool bBehind);
    void Hold();
    void LetGo();
    bool Has(Move move) const;

    const DWORD m_dwHost = GetCurrentThreadId();
    std::atomic<DWORD> m_dwOther{0};   // the worker of the exchange beside it
    std::atomic<DWORD> m_dwWorker{0};  // the one to hold
    std::vector<CMeetingPoint> m_found;
    std::vector<Move> m_moves;
    CMeetingPoint m_point;
    std::atomic<unsigned> m_cCalls{0};
    std::atomic<int> m_depth{0};         // of the worker's locks
    std::atomic<bool> m_bInside{false};  // the worker is in the product's code
    std::atomic<bool> m_bHolds{false};   // FindPoints holds nobody
    std::atomic<bool> m_bAbandoned{false};
    std::atomic<unsigned> m_cEffects{0};  // of an abandoned worker
    // Events, since a held worker may be killed.
    const HANDLE m_hReached = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    const HANDLE m_hLetGo = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    // One that holds a lock which the host waits for goes on as far as to leave it.
    std::atomic<bool> m_bHoldsAgain{false};
    const HANDLE m_hLetGoAgain = CreateEventW(nullptr, TRUE, FALSE, nullptr);

    IHttpRaw* m_pHttpRaw = nullptr;
    IHttpRaw* m_pOther = nullptr;
    bool m_bLate = false;
    bool m_bKilled = false;
    bool m_bPosted = false;
    int m_cPosts = 0;  // after the first
    bool m_bReleasing = false;
};
