// The component for C++ hosts: posts a form and waits for the answer while the thread's messages are
// dispatched, or reports each change of the status to a function of the host's. C++17; links with ole32,
// oleaut32 and user32.
//
//     kvHttp::CClient client;
//     const kvHttp::Answer answer = client.Post(L"http://127.0.0.1:8080/form", L"name=value");
//     std::printf("%ls\n", answer ? answer.strText.c_str() : answer.Reason());
//
// No exception leaves the helper, unless the host asks for it with Answer::OrThrow; OnChange and OnMessage
// alone need memory in which to keep a function. Functions that the host gives must not throw.
#pragma once

#include <windows.h>

#include <chrono>
#include <exception>
#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "kvHttp/Answer.h"
#include "kvHttp/Component.h"
#include "kvHttp/HttpRaw.h"
#include "kvHttp/Outcome.h"

namespace kvHttp
{

struct Form
{
    std::wstring strUrl;
    std::wstring strData;  // sent as it stands, in UTF-8: names and values are to be percent-encoded
    std::wstring strFile;  // where the answer goes; empty: into memory, as text
};

struct Progress
{
    Outcome outcome = Outcome::Idle;
    unsigned long nStatus = REQ_STATUS_IDLE;  // an HttpRequestStatus
    unsigned long long nElapsedMs = 0;
    unsigned long long nFileBytes = 0;  // in the file for the answer, so far
};

// One exchange at a time. All calls but Cancel are for the thread that made the client. Where messages are
// dispatched, that is in Post, Wait, Close and the destructor, and where a stopped download is waited for, in
// Start, the host's windows may call the client; they must not destroy it.
class CClient
{
public:
    // Uses the registered component.
    CClient() = default;

    // Uses the module in this file, registered or not. A relative path is one beside the program; an empty
    // one stands for the registered component.
    explicit CClient(std::wstring strModule) noexcept : m_component(std::move(strModule)) {}

    // Uses what this factory makes, which must not be null.
    explicit CClient(IClassFactory* pFactory) noexcept : m_component(pFactory) {}

    // Ends what runs, as Close does, and reports nothing.
    ~CClient()
    {
        m_pOnChange.reset();
        Close();
        if (m_hTimerWindow != nullptr)
        {
            SetWindowLongPtrW(m_hTimerWindow, GWLP_USERDATA, 0);
            DestroyWindow(m_hTimerWindow);
        }
        if (m_hCancel != nullptr)
        {
            CloseHandle(m_hCancel);
        }
    }
    CClient(const CClient&) = delete;
    CClient& operator=(const CClient&) = delete;

    // Settings of the next exchanges.

    // How long the component lets each try take: it counts anew at each redirect and after each dialog. 0: a
    // minute. At most 4,294,967 seconds: the component counts 32 bits of milliseconds.
    void SetTimeout(std::chrono::seconds timeout) noexcept
    {
        constexpr unsigned long kMost = 4294967;
        const unsigned long nTimeout = ToUnsigned(timeout.count());
        m_nTimeout = nTimeout < kMost ? nTimeout : kMost;
    }
    // How long an exchange may take from Post to its end, redirects and dialogs included. 0: as long as it
    // takes. Where the answer goes into a file and a download was given up before, the worker of that one is
    // waited for first, however long it needs.
    void SetDeadline(std::chrono::milliseconds deadline) noexcept
    {
        m_nDeadlineMs = ToUnsigned(deadline.count());
    }
    // How often the component is asked, at least; 50 ms without this.
    void SetPollInterval(std::chrono::milliseconds interval) noexcept
    {
        m_nPollMs = ToUnsigned(interval.count());
    }
    // The window over which the platform's error dialog appears.
    void SetParentWnd(HWND hWndParent) noexcept { m_hWndParent = hWndParent; }
    // Whether the trace gets answers in memory as plain text. It does not without this.
    void SetTraceResponse(bool bTrace) noexcept { m_bTraceResponse = bTrace; }

    // Called at each change of the status, the first and the last one too, and each time the file is found to
    // have grown, on this thread. It must not destroy the client.
    void OnChange(std::function<void(const Progress&)> onChange) { Keep(m_pOnChange, std::move(onChange)); }
    // Asked about each message that Wait is about to dispatch; true: it is dealt with. For IsDialogMessage
    // and the like. It must not destroy the client.
    void OnMessage(std::function<bool(MSG&)> onMessage) { Keep(m_pOnMessage, std::move(onMessage)); }

    // Makes the component now, so that a host learns at its start what is wrong. Outcome::Idle, or what it
    // is.
    Outcome Open() noexcept { return m_component.Open(); }

    // Posts and waits for the end.
    Answer Post(std::wstring url, std::wstring data) noexcept
    {
        return Post(Form{std::move(url), std::move(data), {}});
    }
    Answer PostToFile(std::wstring url, std::wstring data, std::wstring file) noexcept
    {
        return Post(Form{std::move(url), std::move(data), std::move(file)});
    }
    Answer Post(const Form& form) noexcept
    {
        if (CannotWait())
        {
            return Wait();  // refuses
        }
        const Outcome outcome = Start(form);
        return outcome == Outcome::Running ? Wait() : NoAnswer(outcome);
    }

    // As Post, for an answer that is no text: it is in Answer::strBytes, byte for byte. It goes through a
    // temporary file. No other exchange may be started meanwhile.
    Answer PostForBytes(std::wstring url, std::wstring data) noexcept
    {
        KVHTTP_TRY
        {
            const CTemporaryFile file;
            if (file.Path().empty())
            {
                return NoAnswer(Outcome::FileNotWritable);
            }
            Answer answer = Post(Form{std::move(url), std::move(data), file.Path()});
            if (answer && !file.Read(answer.strBytes))
            {
                answer.outcome = Outcome::FileUnreadable;
            }
            return answer;
        }
        KVHTTP_CATCH(const std::exception&)
        {
            return NoAnswer(Outcome::NoMemory);
        }
    }

    // Posts and returns at once: Outcome::Running, or why nothing has begun; Result may say more. From now on
    // the exchange is looked after whenever this thread dispatches messages.
    Outcome Start(const Form& form) noexcept
    {
        if (!m_component.IsOwner())
        {
            return Outcome::OtherThread;
        }
        if (m_outcome == Outcome::Running || m_bBusy)
        {
            return Outcome::Busy;
        }
        if (form.strUrl.empty() || form.strData.empty())
        {
            return form.strUrl.empty() ? Outcome::NoUrl : Outcome::NoData;
        }
        m_bBusy = true;
        ResetEvent(m_hCancel);
        const ULONGLONG begin = GetTickCount64();
        const Outcome outcome = TryStart(form, begin);
        m_bBusy = false;
        if (outcome == Outcome::Running)
        {
            m_begin = begin;
            m_outcome = outcome;
            m_nStatus = REQ_STATUS_SENDING;
            m_answer = NoAnswer(m_outcome, m_nStatus);
            Report();
        }
        return outcome;
    }

    // Pumps messages until the exchange has ended, and takes its answer; that of the last one where others
    // are started meanwhile. A WM_QUIT ends the exchange; it is posted again for the host's own loop.
    Answer Wait() noexcept
    {
        if (CannotWait())
        {
            return NoAnswer(m_component.IsOwner() ? Outcome::Busy : Outcome::OtherThread);
        }
        m_bWaiting = true;
        const unsigned nClosings = m_nClosings;
        while (Poll() == Outcome::Running && m_nClosings == nClosings)
        {
            PumpMessages();
        }
        m_bWaiting = false;
        // After a Close another exchange may have begun, or ended; its answer stays for whoever began it.
        const bool bOther = m_nClosings != nClosings && m_outcome != Outcome::Idle;
        return bOther ? NoAnswer(Outcome::Idle) : TakeAnswer();
    }

    // Looks how far the exchange is: Outcome::Running until it has ended.
    Outcome Poll() noexcept
    {
        if (!m_component.IsOwner() || m_outcome != Outcome::Running || m_bReporting)
        {
            return m_outcome;
        }
        unsigned long nStatus = m_nStatus;
        if (WaitForSingleObject(m_hCancel, 0) == WAIT_OBJECT_0)
        {
            GiveUp(Outcome::Cancelled);
        }
        else if (m_component.Get()->GetRequestStatus(&nStatus); OutcomeOf(nStatus) != Outcome::Running)
        {
            m_nStatus = nStatus;
            // After a time-out its worker may still run, and hold the file.
            nStatus == REQ_STATUS_TIMEOUT ? GiveUp(Outcome::TimedOut) : Finish(OutcomeOf(nStatus));
        }
        else if (m_nDeadlineMs != 0 && ElapsedMs() >= m_nDeadlineMs)
        {
            GiveUp(Outcome::DeadlinePassed);
        }
        else if (std::exchange(m_nStatus, nStatus) != nStatus || FileBytes() != m_nFileBytes)
        {
            Report();
        }
        return m_outcome;
    }

    // Ends the exchange that runs, if any: it sends nothing more, and an unfinished file goes. For any
    // thread, as long as the client lives. On the client's own thread it has ended when this returns, unless
    // OnChange's function calls.
    void Cancel() noexcept
    {
        SetEvent(m_hCancel);
        if (m_component.IsOwner())
        {
            Poll();
        }
    }

    // The answer of the last exchange, once.
    Answer TakeAnswer() noexcept { return std::exchange(m_answer, NoAnswer(m_outcome, m_nStatus)); }

    Progress State() const noexcept { return {m_outcome, m_nStatus, ElapsedMs(), FileBytes()}; }

    // What the platform said when the component could not be made.
    HRESULT Result() const noexcept { return m_component.Result(); }

    // Gives the component up, and with it what runs: the state is Outcome::Idle then, and nothing is
    // reported; a Post or Wait that calls this through a message returns with Outcome::Idle. Waits until its
    // workers have gone and dispatches messages meanwhile, those of keyboard and mouse apart. With the error
    // dialog open that lasts until the user closes it.
    void Close() noexcept
    {
        if (!m_component.IsOwner())
        {
            return;
        }
        StopTimer();
        if (m_outcome == Outcome::Running)
        {
            m_end = GetTickCount64();
            m_answer = NoAnswer(Outcome::Idle);
        }
        ++m_nClosings;
        m_outcome = Outcome::Idle;
        m_nStatus = REQ_STATUS_IDLE;
        m_bFileAbandoned = false;
        CloseComponent();
    }

private:
    static constexpr UINT_PTR kTimer = 1;
    static constexpr unsigned long kDefaultTimeout = 60;

    template <typename Function>
    static void Keep(std::shared_ptr<Function>& pKept, Function function)
    {
        pKept = function ? std::make_shared<Function>(std::move(function)) : nullptr;
    }

    template <typename Count>
    static unsigned long ToUnsigned(Count count) noexcept
    {
        constexpr Count kMost = 0x7FFFFFFF;
        return count < 0 ? 0 : static_cast<unsigned long>(count < kMost ? count : kMost);
    }

    Answer NoAnswer(Outcome outcome, unsigned long nStatus = REQ_STATUS_IDLE) const noexcept
    {
        Answer answer;
        answer.outcome = outcome;
        answer.hr = Result();
        answer.nStatus = nStatus;
        return answer;
    }

    bool CannotWait() const noexcept { return !m_component.IsOwner() || m_bReporting || m_bWaiting; }

    ULONGLONG ElapsedMs() const noexcept
    {
        return (m_outcome == Outcome::Running ? GetTickCount64() : m_end) - m_begin;
    }

    // Before the answer comes a file of that name is an old one.
    unsigned long long FileBytes() const noexcept
    {
        const bool bNew = m_nStatus == REQ_STATUS_RECEIVING || m_nStatus == REQ_STATUS_DONE;
        return bNew ? FileSize(m_strFile.c_str()) : 0;
    }

    Outcome TryStart(const Form& form, ULONGLONG begin) noexcept
    {
        // A stopped download deletes its file by name when its worker comes to it.
        if (m_bFileAbandoned && !form.strFile.empty())
        {
            const unsigned nClosings = m_nClosings;
            m_bFileAbandoned = false;
            CloseComponent();
            if (m_nClosings != nClosings)
            {
                return Outcome::Idle;
            }
            if (WaitForSingleObject(m_hCancel, 0) == WAIT_OBJECT_0)
            {
                return Outcome::Cancelled;
            }
            if (m_nDeadlineMs != 0 && GetTickCount64() - begin >= m_nDeadlineMs)
            {
                return Outcome::DeadlinePassed;
            }
        }
        const Outcome outcome = Open();
        if (outcome != Outcome::Idle)
        {
            return outcome;
        }
        std::wstring strFile;
        KVHTTP_TRY
        {
            // The component would complete a relative path when the answer comes.
            strFile = FullPath(form.strFile);
        }
        KVHTTP_CATCH(const std::exception&)
        {
            return Outcome::NoMemory;
        }
        if (!strFile.empty() && !CanBeWritten(strFile.c_str()))
        {
            return Outcome::FileNotWritable;
        }
        if (m_hCancel == nullptr || !StartTimer())
        {
            return Outcome::NoMemory;
        }
        IHttpRaw* const pHttpRaw = m_component.Get();
        pHttpRaw->SetTimeout(Timeout());
        pHttpRaw->SetParentWnd(m_hWndParent);
        pHttpRaw->SetTraceResponse(m_bTraceResponse ? 1 : 0);
        pHttpRaw->SetDownloadFile(strFile.c_str());
        if (FAILED(pHttpRaw->PostRequest(form.strUrl.c_str(), form.strData.c_str())))
        {
            StopTimer();
            return Outcome::NoMemory;
        }
        m_strFile.swap(strFile);
        return Outcome::Running;
    }

    // No longer than the deadline, for the platform's own time-outs are set to it.
    unsigned long Timeout() const noexcept
    {
        const unsigned long nTimeout = m_nTimeout != 0 ? m_nTimeout : kDefaultTimeout;
        const unsigned long nDeadline = m_nDeadlineMs / 1000 + 1;
        return m_nDeadlineMs != 0 && nDeadline < nTimeout ? nDeadline : nTimeout;
    }

    // Leaves the exchange to itself: a post that goes nowhere overtakes it, which waits for nothing. What is
    // overtaken sends no more, shows no dialog, and deletes its unfinished file.
    void Abandon() noexcept
    {
        IHttpRaw* const pHttpRaw = m_component.Get();
        m_bFileAbandoned = m_bFileAbandoned || !m_strFile.empty();
        pHttpRaw->SetDownloadFile(L"");
        pHttpRaw->SetParentWnd(nullptr);
        if (FAILED(pHttpRaw->PostRequest(L"-", L"-")))
        {
            CloseComponent();
        }
    }

    // No post begins while messages are dispatched in here.
    void CloseComponent() noexcept
    {
        const bool bBusy = std::exchange(m_bBusy, true);
        m_component.Close();
        m_bBusy = bBusy;
    }

    void GiveUp(Outcome outcome) noexcept
    {
        m_outcome = outcome;
        StopTimer();
        Abandon();
        Finish(outcome);
    }

    void Finish(Outcome outcome) noexcept
    {
        m_outcome = outcome;
        m_end = GetTickCount64();
        StopTimer();
        m_answer = NoAnswer(outcome, m_nStatus);
        m_answer.nElapsedMs = ElapsedMs();
        if (outcome == Outcome::Done && m_strFile.empty())
        {
            m_answer.TakeText(*m_component.Get());
            m_outcome = m_answer.outcome;
        }
        m_answer.nFileBytes = FileBytes();
        Report();
    }

    void Report() noexcept
    {
        // Kept here, for the function may ask for another one.
        const std::shared_ptr<std::function<void(const Progress&)>> pOnChange = m_pOnChange;
        if (pOnChange != nullptr)
        {
            const Progress progress = State();
            m_nFileBytes = progress.nFileBytes;
            const bool bReporting = std::exchange(m_bReporting, true);
            (*pOnChange)(progress);
            m_bReporting = bReporting;
        }
    }

    void PumpMessages() noexcept
    {
        const ULONGLONG elapsed = ElapsedMs();
        const ULONGLONG left = m_nDeadlineMs == 0        ? m_nPollMs
                               : m_nDeadlineMs > elapsed ? m_nDeadlineMs - elapsed
                                                         : 0;
        MsgWaitForMultipleObjectsEx(1, &m_hCancel, left < m_nPollMs ? static_cast<DWORD>(left) : m_nPollMs,
                                    QS_ALLINPUT, MWMO_INPUTAVAILABLE);
        // However many come, the component is asked in time.
        const ULONGLONG begin = GetTickCount64();
        MSG msg = {};
        while (m_outcome == Outcome::Running && PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE))
        {
            if (msg.message == WM_QUIT)
            {
                PostQuitMessage(static_cast<int>(msg.wParam));
                // A report that begins the next exchange would wait for ever.
                const bool bBusy = std::exchange(m_bBusy, true);
                GiveUp(Outcome::QuitAsked);
                m_bBusy = bBusy;
                return;
            }
            const std::shared_ptr<std::function<bool(MSG&)>> pOnMessage = m_pOnMessage;
            if (pOnMessage == nullptr || !(*pOnMessage)(msg))
            {
                TranslateMessage(&msg);
                DispatchMessageW(&msg);
            }
            if (GetTickCount64() - begin >= m_nPollMs)
            {
                return;
            }
        }
    }

    // The timer is that of a window nobody sees, so that every loop that dispatches messages serves it.
    bool StartTimer() noexcept
    {
        if (m_hTimerWindow == nullptr)
        {
            m_hTimerWindow = CreateWindowExW(0, L"STATIC", nullptr, 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr,
                                             GetModuleHandleW(nullptr), nullptr);
            if (m_hTimerWindow == nullptr)
            {
                return false;
            }
            SetWindowLongPtrW(m_hTimerWindow, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(this));
        }
        return SetTimer(m_hTimerWindow, kTimer, m_nPollMs, OnTimer) != 0;
    }

    void StopTimer() noexcept
    {
        if (m_hTimerWindow != nullptr)
        {
            KillTimer(m_hTimerWindow, kTimer);
        }
    }

    static void CALLBACK OnTimer(HWND hWnd, UINT, UINT_PTR, DWORD) noexcept
    {
        CClient* const pThis = reinterpret_cast<CClient*>(GetWindowLongPtrW(hWnd, GWLP_USERDATA));
        if (pThis != nullptr)
        {
            pThis->Poll();
        }
    }

    CComponent m_component;
    const HANDLE m_hCancel = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    HWND m_hTimerWindow = nullptr;
    std::shared_ptr<std::function<void(const Progress&)>> m_pOnChange;
    std::shared_ptr<std::function<bool(MSG&)>> m_pOnMessage;

    unsigned long m_nTimeout = 0;
    unsigned long m_nDeadlineMs = 0;
    unsigned long m_nPollMs = 50;
    HWND m_hWndParent = nullptr;
    bool m_bTraceResponse = false;

    Outcome m_outcome = Outcome::Idle;
    unsigned long m_nStatus = REQ_STATUS_IDLE;
    Answer m_answer;
    std::wstring m_strFile;
    unsigned long long m_nFileBytes = 0;  // as reported last
    ULONGLONG m_begin = 0;
    ULONGLONG m_end = 0;
    unsigned m_nClosings = 0;
    bool m_bBusy = false;  // a call of the host's is in here that must come to its end
    bool m_bWaiting = false;
    bool m_bReporting = false;
    bool m_bFileAbandoned = false;  // by an exchange whose worker may still come to delete it
};

}  // namespace kvHttp
