#include "module/calls/ExchangeRun.h"

#include <comdef.h>

namespace
{

// Whether nothing but pieces is missing in it.
bool IsPartOf(const std::string& whole, const std::string& text)
{
    size_t found = 0;
    for (size_t at = 0; at < whole.size() && found < text.size(); ++at)
    {
        found += whole[at] == text[found];
    }
    return found == text.size();
}

}  // namespace

CExchangeRun::CExchangeRun(ExchangeKind kind, const CProxyUser& user, bool bTraces) : CSeenModule(kind, user)
{
    m_trace.m_bFound = bTraces;
    if (kind == EXCHANGE_QUIT)
    {
        Calls().m_onCall = [this](const CCallRow& row, bool bBehind) { OnCall(row, bBehind); };
    }
}

CExchangeRun::~CExchangeRun()
{
    CloseHandle(m_hHeld);
    CloseHandle(m_hLetGo);
}

// The worker is held behind its second read, which the close of the request ends, and lets itself be killed
// only between two calls: in one of them it may hold a lock of the heap or of the test's own.
void CExchangeRun::OnCall(const CCallRow& row, bool bBehind)
{
    if (GetCurrentThreadId() == m_dwHost)
    {
        OnHostCall(row, bBehind);
        return;
    }
    m_bInside = m_bInside || row.name == "GetModuleHandleExW";
    const bool bRead = row.name == "InternetReadFile" && bBehind && m_journal.Count("InternetReadFile") == 2;
    if (bRead || (m_bInside && m_bKills))
    {
        Hold();
    }
    m_bInside = m_bInside && row.name != "FreeLibraryAndExitThread";
}

void CExchangeRun::OnHostCall(const CCallRow& row, bool bBehind)
{
    if (row.name == "TerminateThread" && !bBehind)
    {
        m_bKills = true;
        while (WaitForSingleObject(m_hHeld, 1) != WAIT_OBJECT_0 && !m_system.HaveThreadsEnded())
        {
        }
    }
    // It cannot kill the worker, and so waits for it.
    if (row.name == "WaitForSingleObject" && !bBehind)
    {
        SetEvent(m_hLetGo);
    }
}

void CExchangeRun::Hold()
{
    constexpr DWORD kPatienceMs = 20000;
    SetEvent(m_hHeld);
    WaitForSingleObject(m_hLetGo, kPatienceMs);
}

std::string CExchangeRun::Run()
{
    IHttpRaw* const pHttpRaw = m_pModule->CreateHttpRaw();
    std::string outcome = pHttpRaw == nullptr ? "N" : Exchange(pHttpRaw);
    if (pHttpRaw != nullptr)
    {
        pHttpRaw->Release();
    }
    SetEvent(m_hLetGo);
    Expect(m_system.WaitForThreads(), "a worker does not end");
    MSG msg = {};
    PeekMessageW(&msg, nullptr, WM_QUIT, WM_QUIT, PM_REMOVE);
    const bool bEndedItself = m_system.Worker() == nullptr || m_system.ExitCode(0) == 0;
    const bool bKilled = DropReferencesOfKilled() || !bEndedItself;
    Expect(!bKilled || m_kind == EXCHANGE_QUIT, "the worker was killed");
    m_pModule.reset();
    outcome += JudgeForms();
    JudgeFaults();
    if (bKilled)
    {
        m_winInet.m_handles.TakeOpen();
    }
    else
    {
        JudgeLeftovers();
    }
    return outcome;
}

std::string CExchangeRun::Exchange(IHttpRaw* pHttpRaw)
{
    Prepare(pHttpRaw);
    const HRESULT hr = pHttpRaw->PostRequest(kUrl, kData);
    if (FAILED(hr))
    {
        Expect(hr == E_FAIL, "the post gives another error");
        return "P";
    }
    m_system.LetGo();
    if (m_kind == EXCHANGE_RELEASE || m_kind == EXCHANGE_QUIT)
    {
        if (AwaitSecondRead() && m_kind == EXCHANGE_QUIT)
        {
            PostQuitMessage(0);
        }
        return "R";
    }
    Expect(m_system.WaitForThreads(), "the worker does not end");
    const std::string status = AwaitEnd(pHttpRaw);
    const std::string answer = TakeAnswer(pHttpRaw, status == "9");
    return status == "9" ? answer : status;
}

// Where the file has begun, and the worker waits for the close of the request. False when it has ended
// before.
bool CExchangeRun::AwaitSecondRead() const
{
    while (m_journal.Count("InternetReadFile") < 2)
    {
        if (m_system.HaveThreadsEnded())
        {
            return false;
        }
        SwitchToThread();
    }
    return true;
}

// A host polls until the status is final, and the clock goes on.
std::string CExchangeRun::AwaitEnd(IHttpRaw* pHttpRaw)
{
    constexpr int kPolls = 3;
    unsigned long status = Poll(pHttpRaw);
    for (int poll = 1; poll < kPolls && (status == REQ_STATUS_SENDING || status == REQ_STATUS_RECEIVING);
         ++poll)
    {
        m_system.m_dwTick += 60001;
        status = Poll(pHttpRaw);
    }
    return std::to_string(status);
}

std::string CExchangeRun::TakeAnswer(IHttpRaw* pHttpRaw, bool bDone)
{
    const std::string whole = kAnswer;
    std::optional<std::string> answer;
    try
    {
        answer = Take(pHttpRaw);
    }
    catch (const _com_error& error)
    {
        Expect(bDone && error.Error() == E_OUTOFMEMORY, "taking the answer raises another error");
        return "E";
    }
    Expect(!answer || (bDone && m_kind != EXCHANGE_FILE), "there is an answer in memory");
    if (m_kind == EXCHANGE_FILE)
    {
        answer = m_system.FileContent();
    }
    const std::string text = answer.value_or("");
    Expect(IsPartOf(whole, text), "another answer: " + text);
    return text == whole ? "9" : "s";
}

// Each form is whole and goes to the address that it was posted to, or to the one that a server has named.
std::string CExchangeRun::JudgeForms()
{
    std::string outcome;
    for (const std::string& form : m_winInet.Forms())
    {
        const bool bEmpty = form.starts_with(" to ");
        const std::string address = form.substr(form.find(" to "));
        Expect(bEmpty || form.starts_with("a=1 to "), "sends another form: " + form);
        Expect(address == " to 127.0.0.1/p" || (m_kind == EXCHANGE_REDIRECT && address == " to 127.0.0.2/q"),
               "sends elsewhere: " + form);
        outcome = bEmpty ? "e" : outcome;
    }
    return outcome;
}
