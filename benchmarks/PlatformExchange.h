// The WinINet calls of the component's exchange, made by hand: on the caller's thread, or on a thread for
// each exchange, as the component does.
#pragma once

#include <windows.h>
#include <wininet.h>

#include <atomic>
#include <string>

#include "Poster.h"

enum PlatformWay
{
    ON_CALLERS_THREAD,
    ON_OWN_THREAD,
    ON_OWN_THREAD_WITH_TEXT,  // converts the form from UTF-16, and the answer to it
};

class CPlatformExchange : public CPoster
{
public:
    explicit CPlatformExchange(PlatformWay way);
    ~CPlatformExchange() override;
    CPlatformExchange(const CPlatformExchange&) = delete;
    CPlatformExchange& operator=(const CPlatformExchange&) = delete;

    void Start(const CTask& task) override;
    bool HasEnded() override;
    void TakeAnswer(const CTask& task) override;
    bool HasAnswer(const CTask& task) const override;

private:
    static unsigned __stdcall ThreadProc(void* exchange);
    void Exchange();
    bool Send(HINTERNET hRequest) const;
    void ReadBody(HINTERNET hRequest);
    void ReadBodyInto(HINTERNET hRequest, const std::wstring& file);

    const HINTERNET m_hSession;
    const PlatformWay m_way;
    const CTask* m_pTask = nullptr;
    std::string m_answer;
    std::wstring m_text;
    HANDLE m_hThread = nullptr;
    std::atomic<bool> m_bDone{false};
};
