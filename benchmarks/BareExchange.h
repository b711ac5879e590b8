// The WinINet calls of the component's exchange, made by hand on a bare thread.
#pragma once

#include <windows.h>
#include <wininet.h>

#include <atomic>
#include <string>

class CBareExchange
{
public:
    explicit CBareExchange(unsigned short port);
    ~CBareExchange();
    CBareExchange(const CBareExchange&) = delete;
    CBareExchange& operator=(const CBareExchange&) = delete;

    // Posts the form on a thread of its own and polls for the answer; empty when something failed.
    std::string Post(const std::string& form);

private:
    static unsigned __stdcall ThreadProc(void* exchange);
    void Exchange();
    void ReadBody(HINTERNET hRequest);

    HINTERNET m_hSession;
    unsigned short m_port;
    std::string m_form;
    std::string m_answer;
    std::atomic<bool> m_bDone{false};
};
