#include "module/calls/MeetingRun.h"

#include <algorithm>
#include <iterator>

#include "support/Gate.h"
#include "support/Hold.h"

namespace
{

constexpr DWORD kPatienceMs = 20000;
constexpr DWORD kKilledOnQuit = 0xFFFFFFFD;
constexpr size_t kWorker = 1;  // the second thread that is started

bool IsOneOf(const std::string& name, std::initializer_list<const char*> names)
{
    return std::find(names.begin(), names.end(), name) != names.end();
}

// A call with a handle is held within the platform, where it has taken the handle already.
bool IsHeldInside(const std::string& name)
{
    return IsOneOf(name,
                   {"InternetConnectW", "HttpOpenRequestW", "HttpSendRequestW", "HttpQueryInfoW",
                    "InternetReadFile", "InternetQueryOptionW", "InternetSetOptionW", "InternetErrorDlg"});
}

// What only a worker does whose exchange goes on.
bool IsEffect(const std::string& name)
{
    return IsOneOf(name, {"HttpSendRequestW", "HttpQueryInfoW", "InternetReadFile", "CreateFileW",
                          "InternetErrorDlg", "InternetQueryOptionW", "InternetSetOptionW"});
}

}  // namespace

const char* NameOf(Move move)
{
    constexpr const char* kNames[] = {"poll", "late poll", "take", "post", "set", "release", "free", "quit"};
    return kNames[move];
}

CMeetingRun::CMeetingRun(ExchangeKind kind, const CProxyUser& user) : CSeenModule(kind, user)
{
    m_winInet.m_servers[L"/beside"].reads.Then({"beside "}).Then({"the other"});
    m_winInet.m_servers[L"/again"];
    Calls().m_onCall = [this](const CCallRow& row, bool bBehind) { OnCall(row, bBehind); };
}

CMeetingRun::~CMeetingRun()
{
    CloseHandle(m_hReached);
    CloseHandle(m_hLetGo);
    CloseHandle(m_hLetGoAgain);
}

std::vector<CMeetingPoint> CMeetingRun::FindPoints()
{
    Course({});
    return m_found;
}

void CMeetingRun::Meet(const CMeetingPoint& point, const std::vector<Move>& moves)
{
    m_point = point;
    m_bHolds = true;
    Course(moves);
}

bool CMeetingRun::Has(Move move) const
{
    return std::find(m_moves.begin(), m_moves.end(), move) != m_moves.end();
}

void CMeetingRun::Course(const std::vector<Move>& moves)
{
    m_moves = moves;
    CHold other(m_journal, "InternetReadFile", 2);
    Calls().Begin();
    m_pOther = m_pModule->CreateHttpRaw();
    m_pOther->SetTimeout(1000);  // the clock moves for both
    m_pOther->PostRequest(L"http://127.0.0.9/beside", L"b=2");
    m_system.LetGo();
    Expect(other.Reached(), "the other exchange does not come to its answer");
    Begin();
    if (Has(MOVE_FREE))
    {
        other.LetGo();
        FinishOther();
    }
    for (const Move move : moves)
    {
        Make(move);
    }
    LetGo();
    const DWORD dwCode = m_system.ExitCode(kWorker);
    m_bKilled = dwCode == kKilledOnQuit;
    Expect(dwCode == 0 || (m_bKilled && Has(MOVE_QUIT)), "the worker does not end by itself");
    if (m_pHttpRaw != nullptr)
    {
        FinishAlone();
    }
    if (m_pOther != nullptr)
    {
        other.LetGo();
        FinishOther();
    }
    Expect(m_system.WaitForThreads(), "a worker does not end");
    Judge();
}

// Posts, and lets the worker come to its point.
void CMeetingRun::Begin()
{
    m_pHttpRaw = m_pModule->CreateHttpRaw();
    Prepare(m_pHttpRaw);
    Expect(m_pHttpRaw->PostRequest(kUrl, kData) == S_OK, "the post is refused");
    m_system.LetGo();
    if (m_bHolds)
    {
        Expect(WaitForSingleObject(m_hReached, kPatienceMs) == WAIT_OBJECT_0, "the worker is not held");
    }
}

void CMeetingRun::Make(Move move)
{
    switch (move)
    {
        case MOVE_LATE_POLL:
            m_system.m_dwTick += 60001;
            m_bLate = true;
            JudgePoll();
            break;
        case MOVE_POLL:
            JudgePoll();
            break;
        case MOVE_TAKE:
        {
            const std::optional<std::string> answer = Take(m_pHttpRaw);
            const std::string whole = m_bPosted ? "again" : kAnswer;
            Expect(!answer || *answer == whole, "the answer that is taken is " + answer.value_or(""));
            break;
        }
        case MOVE_POST:
            PostElsewhere();
            break;
        case MOVE_SET:
            m_pHttpRaw->SetDownloadFile(L"C:\\later");
            m_pHttpRaw->SetParentWnd(nullptr);
            m_pHttpRaw->SetTimeout(1);
            m_pHttpRaw->SetTraceResponse(0);
            break;
        default:
            Release(move);
            break;
    }
}

void CMeetingRun::JudgePoll()
{
    const unsigned long status = Poll(m_pHttpRaw);
    const bool bKnown = status == REQ_STATUS_SENDING || status == REQ_STATUS_RECEIVING ||
                        status == REQ_STATUS_DONE ||
                        (m_bLate && (status == REQ_STATUS_TIMEOUT || status == REQ_STATUS_FAILED));
    Expect(bKnown, "a poll gives " + std::to_string(status));
    Expect(!m_bPosted || status == REQ_STATUS_DONE,
           "a poll after the second post gives " + std::to_string(status));
}

// The new exchange runs to its end while the worker is held.
void CMeetingRun::PostElsewhere()
{
    m_winInet.m_servers[L"/again"].reads.Then({"again"});
    m_pHttpRaw->SetDownloadFile(L"");
    Expect(m_pHttpRaw->PostRequest(L"http://127.0.0.8/again", L"c=3") == S_OK, "the second post is refused");
    m_bAbandoned = true;
    m_bPosted = true;
    m_bLate = false;
    m_system.LetGo();
    const size_t worker = kWorker + static_cast<size_t>(++m_cPosts);
    Expect(m_system.ExitCode(worker) == 0, "the second worker does not end");
}

void CMeetingRun::Release(Move move)
{
    if (move == MOVE_QUIT)
    {
        PostQuitMessage(7);
    }
    m_bReleasing = true;
    std::exchange(m_pHttpRaw, nullptr)->Release();
    if (move == MOVE_FREE)
    {
        m_pModule->Free();
    }
    MSG msg = {};
    const bool bQuit = PeekMessageW(&msg, nullptr, WM_QUIT, WM_QUIT, PM_REMOVE) != FALSE;
    Expect(bQuit == (move == MOVE_QUIT), bQuit ? "a quit message came up" : "the quit message is lost");
}

void CMeetingRun::FinishAlone()
{
    unsigned long status = Poll(m_pHttpRaw);
    if (m_bLate && (status == REQ_STATUS_SENDING || status == REQ_STATUS_RECEIVING))
    {
        m_system.m_dwTick += 60001;
        status = Poll(m_pHttpRaw);
    }
    const bool bLateEnd = m_bLate && (status == REQ_STATUS_TIMEOUT || status == REQ_STATUS_FAILED);
    Expect(status == REQ_STATUS_DONE || bLateEnd, "it ends in " + std::to_string(status));
    const std::optional<std::string> answer = Take(m_pHttpRaw);
    const bool bInFile = m_kind == EXCHANGE_FILE && !m_bPosted;
    if (bInFile && status == REQ_STATUS_DONE)
    {
        Expect(m_system.FileContent() == kAnswer, "the file holds " + m_system.FileContent());
    }
    const std::string whole = m_bPosted ? "again" : kAnswer;
    Expect(!answer || *answer == whole, "the answer is " + answer.value_or(""));
    Expect(answer.has_value() == (status == REQ_STATUS_DONE && !bInFile) || bLateEnd,
           "the answer is missing");
    std::exchange(m_pHttpRaw, nullptr)->Release();
}

// Byte by byte what was sent to it.
void CMeetingRun::FinishOther()
{
    Expect(m_system.ExitCode(0) == 0, "the other worker does not end");
    Expect(Poll(m_pOther) == REQ_STATUS_DONE, "the other exchange does not end well");
    Expect(Take(m_pOther) == "beside the other", "the other answer is not its own");
    std::exchange(m_pOther, nullptr)->Release();
}

void CMeetingRun::OnCall(const CCallRow& row, bool bBehind)
{
    const DWORD dwThread = GetCurrentThreadId();
    if (dwThread == m_dwHost)
    {
        if (m_bReleasing && !bBehind && IsOneOf(row.name, {"MsgWaitForMultipleObjects", "Sleep"}))
        {
            LetGo();
        }
        if (m_bReleasing && !bBehind && row.name == "EnterCriticalSection" && m_depth > 0)
        {
            m_bAbandoned = true;
            m_bHoldsAgain = true;
            SetEvent(m_hLetGo);
        }
        return;
    }
    if (m_dwOther == 0)
    {
        m_dwOther = dwThread;
    }
    if (dwThread == m_dwOther)
    {
        return;
    }
    DWORD dwNone = 0;
    m_dwWorker.compare_exchange_strong(dwNone, dwThread);
    if (dwThread != m_dwWorker || !row.bMeeting)
    {
        return;
    }
    // Before and behind, the platform's loader holds its lock.
    m_bInside = m_bInside || row.name == "GetModuleHandleExW";
    if (m_bInside)
    {
        m_bInside = row.name != "FreeLibraryAndExitThread";
        OnWorkerCall(row, bBehind);
    }
}

void CMeetingRun::OnWorkerCall(const CCallRow& row, bool bBehind)
{
    const bool bEnters = row.name == "EnterCriticalSection" && bBehind;
    const bool bLeaves = row.name == "LeaveCriticalSection" && bBehind;
    m_depth += bEnters ? 1 : bLeaves ? -1 : 0;
    if (!bBehind)
    {
        m_cEffects += m_bAbandoned && IsEffect(row.name) ? 1 : 0;
        ++m_cCalls;
    }
    if (bLeaves && m_bHoldsAgain.exchange(false))
    {
        WaitForSingleObject(m_hLetGoAgain, kPatienceMs);
    }
    const unsigned call = m_cCalls - 1;
    if (!m_bHolds)
    {
        m_found.push_back(
            {call, bBehind,
             (bBehind ? "behind call " : "before call ") + std::to_string(call) + ", " + row.name});
        return;
    }
    if (call != m_point.call || bBehind != m_point.bBehind ||
        WaitForSingleObject(m_hReached, 0) == WAIT_OBJECT_0)
    {
        return;
    }
    Expect(m_point.name.ends_with(row.name), "the worker takes another course: " + row.name);
    if (!bBehind && IsHeldInside(row.name))
    {
        m_journal.On(row.name, 1, [this] { Hold(); });
        return;
    }
    Hold();
}

void CMeetingRun::Hold()
{
    SetEvent(m_hReached);
    WaitForSingleObject(m_hLetGo, kPatienceMs);
}

void CMeetingRun::LetGo()
{
    m_bAbandoned = m_bAbandoned || m_bReleasing;
    SetEvent(m_hLetGo);
    SetEvent(m_hLetGoAgain);
}

void CMeetingRun::Judge()
{
    // One that is killed before its first call has taken no reference yet.
    const bool bKilled = DropReferencesOfKilled() || m_bKilled;
    Expect(!bKilled || Has(MOVE_QUIT), "a worker was killed");
    m_pModule.reset();
    JudgeForms();
    JudgeFaults();
    if (bKilled)
    {
        m_winInet.m_handles.TakeOpen();  // a killed worker leaves what it was about to keep
    }
    else
    {
        JudgeLeftovers();
    }
    Expect(m_cEffects == 0, "a worker that was abandoned goes on");
    Expect(m_journal.Count("CreateFileW") == m_journal.Count("CloseHandle(file") || bKilled,
           "a file was not closed");
    const size_t deletions = m_journal.Count("DeleteFileW(");
    Expect(deletions == m_journal.Count("DeleteFileW('C:\\target')"), "another file was deleted");
    const bool bMade = m_journal.Count("CreateFileW") != 0;
    Expect(!bMade || bKilled || deletions == 1 || m_system.FileContent() == kAnswer,
           "a piece of a file was left");
    Expect(bMade || deletions == 0, "a file was deleted that it had not made");
}

// Each form goes to the address that it was posted to, or to one that a server has named, and once; again
// only after the user has been asked.
void CMeetingRun::JudgeForms()
{
    std::map<std::string, int> allowed = {
        {"a=1 to 127.0.0.1/p", m_kind == EXCHANGE_DIALOG ? 2 : 1},
        {"a=1 to 127.0.0.2/q", m_kind == EXCHANGE_REDIRECT ? 1 : 0},
        {"b=2 to 127.0.0.9/beside", 1},
        {"c=3 to 127.0.0.8/again", m_cPosts},
    };
    for (const std::string& form : m_winInet.Forms())
    {
        Expect(--allowed[form] >= 0, "sends " + form);
    }
    Expect(allowed["b=2 to 127.0.0.9/beside"] == 0, "the other form was not sent");
    Expect(allowed["c=3 to 127.0.0.8/again"] == 0, "the second form was not sent");
}
