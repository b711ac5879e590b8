// The platform under one request: a clock that the test moves, and an Internet that answers with the
// pieces that the test gives, for the test program itself or for a module that it has loaded. Every call is
// recorded with the thread that made it.
#pragma once

#include <windows.h>
#include <wininet.h>

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "support/Mutex.h"
#include "unit/request/ThreadScript.h"

class CRequestScript
{
public:
    explicit CRequestScript(HMODULE hModule = GetModuleHandleW(nullptr));
    ~CRequestScript();

    std::atomic<DWORD> m_dwTick{0};

    // The body, a piece a read.
    std::vector<std::string> m_pieces;
    // Requests are numbered from 1 in the order in which they are opened.
    // Runs within the send, on the worker; its result is the call's result.
    std::function<BOOL(int request)> m_onSend = [](int) { return TRUE; };
    // Runs within the connecting of the nth exchange, on the worker.
    std::function<void(int exchange)> m_onConnect;
    // Runs before each read, on the worker.
    std::function<void()> m_onRead;
    std::function<void(int request)> m_onCloseRequest;
    BOOL m_bConnected = TRUE;

    // "owner: call" or "worker: call", in their order.
    std::vector<std::string> Calls() const;

    // For a module that has been unloaded: nothing is put back.
    void Forget();

    CThreadScript m_thread;

private:
    void Add(const std::string& call);

    static DWORD WINAPI Tick();
    static HINTERNET WINAPI Open(LPCWSTR pszAgent, DWORD dwType, LPCWSTR pszProxy, LPCWSTR pszBypass,
                                 DWORD dwFlags);
    static BOOL WINAPI ConnectedState(LPDWORD pdwFlags, DWORD dwReserved);
    static HINTERNET WINAPI Connect(HINTERNET hSession, LPCWSTR pszServer, INTERNET_PORT nPort,
                                    LPCWSTR pszUser, LPCWSTR pszPassword, DWORD dwService, DWORD dwFlags,
                                    DWORD_PTR context);
    static HINTERNET WINAPI OpenRequest(HINTERNET hConnect, LPCWSTR pszVerb, LPCWSTR pszObject,
                                        LPCWSTR pszVersion, LPCWSTR pszReferrer, LPCWSTR* ppszTypes,
                                        DWORD dwFlags, DWORD_PTR context);
    static BOOL WINAPI Send(HINTERNET hRequest, LPCWSTR pszHeaders, DWORD cchHeaders, LPVOID pBody,
                            DWORD cbBody);
    static BOOL WINAPI QueryInfo(HINTERNET hRequest, DWORD dwLevel, LPVOID pBuffer, LPDWORD pcb,
                                 LPDWORD pdwIndex);
    static BOOL WINAPI Read(HINTERNET hRequest, LPVOID pBuffer, DWORD cb, LPDWORD pcbRead);
    static BOOL WINAPI QueryOption(HINTERNET hInternet, DWORD dwOption, LPVOID pBuffer, LPDWORD pcb);
    static BOOL WINAPI SetOption(HINTERNET hInternet, DWORD dwOption, LPVOID pBuffer, DWORD cb);
    static BOOL WINAPI Close(HINTERNET hInternet);

    const DWORD m_dwOwnerId = GetCurrentThreadId();
    mutable CMutex m_mutex;
    std::vector<std::string> m_calls;
    size_t m_read = 0;
    std::atomic<int> m_exchanges{0};
    std::atomic<int> m_requests{0};

    std::vector<std::unique_ptr<CImportPatch>> m_patches;
};
