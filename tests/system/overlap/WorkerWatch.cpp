#include "system/overlap/WorkerWatch.h"

#include <gtest/gtest.h>

#include <atomic>
#include <map>
#include <memory>
#include <optional>
#include <set>

#include "support/CallText.h"
#include "support/Hold.h"
#include "support/Mutex.h"
#include "support/WineVersion.h"

namespace
{

constexpr size_t kMostFillers = 64;

struct State
{
    CJournal journal;

    CMutex mutex;  // around what follows
    int cWorkers = 0;
    std::map<HINTERNET, int> requests;  // the open ones, and their workers
    std::map<int, HINTERNET> lastRequests;
    std::map<int, DWORD> sends;
    std::map<int, DWORD> dialogs;
    std::set<HINTERNET> fillers;  // sessions that only occupy numbers
    std::vector<std::string> faults;

    std::atomic<HINTERNET> hHandedOn{nullptr};
};

std::unique_ptr<State> g_pState;
thread_local int t_worker = 0;  // 0: no worker

// Keeps the error of the call that has just been made.
template <typename Result>
Result Done(const std::string& call, Result result)
{
    if (t_worker != 0)
    {
        const DWORD dwError = GetLastError();
        g_pState->journal.Add(CALL_NET, std::to_string(t_worker) + ": " + call);
        SetLastError(dwError);
    }
    return result;
}

void UseRequest(HINTERNET hRequest, const std::string& call)
{
    const std::lock_guard lock(g_pState->mutex);
    const auto request = g_pState->requests.find(hRequest);
    if (t_worker == 0 || (request != g_pState->requests.end() && request->second == t_worker))
    {
        return;
    }
    g_pState->faults.push_back("worker " + std::to_string(t_worker) + " has called " + call +
                               (request == g_pState->requests.end()
                                    ? " with a handle that was closed"
                                    : " with the request of worker " + std::to_string(request->second)));
}

// Puts the free numbers up to that of the handle out of use, if that is free.
void Occupy(HINTERNET hRequest)
{
    const std::lock_guard lock(g_pState->mutex);
    HINTERNET hFiller = nullptr;
    while (hFiller < hRequest && g_pState->fillers.size() < kMostFillers)
    {
        hFiller = InternetOpenW(L"filler", INTERNET_OPEN_TYPE_DIRECT, nullptr, nullptr, 0);
        g_pState->fillers.insert(hFiller);
    }
}

void Free(HINTERNET hFiller)
{
    const std::lock_guard lock(g_pState->mutex);
    if (g_pState->fillers.erase(hFiller) != 0)
    {
        InternetCloseHandle(hFiller);
    }
}

// What the test has set for this worker, once; nothing: what the platform says.
std::optional<DWORD> Take(std::map<int, DWORD>& ends)
{
    const std::lock_guard lock(g_pState->mutex);
    const auto end = ends.extract(t_worker);
    return end.empty() ? std::nullopt : std::optional(end.mapped());
}

HINTERNET WINAPI Connect(HINTERNET hSession, LPCWSTR pszHost, INTERNET_PORT port, LPCWSTR pszUser,
                         LPCWSTR pszPassword, DWORD dwService, DWORD dwFlags, DWORD_PTR context)
{
    if (t_worker == 0)
    {
        const std::lock_guard lock(g_pState->mutex);
        t_worker = ++g_pState->cWorkers;
    }
    if (g_pState->hHandedOn != nullptr)
    {
        Occupy(g_pState->hHandedOn);
    }
    const HINTERNET hConnect =
        InternetConnectW(hSession, pszHost, port, pszUser, pszPassword, dwService, dwFlags, context);
    return Done("InternetConnectW", hConnect);
}

HINTERNET WINAPI Open(HINTERNET hConnect, LPCWSTR pszVerb, LPCWSTR pszObject, LPCWSTR pszVersion,
                      LPCWSTR pszReferrer, LPCWSTR* ppszTypes, DWORD dwFlags, DWORD_PTR context)
{
    const HINTERNET hRequest =
        HttpOpenRequestW(hConnect, pszVerb, pszObject, pszVersion, pszReferrer, ppszTypes, dwFlags, context);
    {
        const std::lock_guard lock(g_pState->mutex);
        g_pState->requests[hRequest] = t_worker;
        g_pState->lastRequests[t_worker] = hRequest;
    }
    return Done("HttpOpenRequestW", hRequest);
}

BOOL WINAPI QueryOption(HINTERNET hRequest, DWORD dwOption, LPVOID pBuffer, LPDWORD pdwLength)
{
    const std::string call = "InternetQueryOptionW " + std::to_string(dwOption);
    UseRequest(hRequest, call);
    return Done(call, InternetQueryOptionW(hRequest, dwOption, pBuffer, pdwLength));
}

BOOL WINAPI SetOption(HINTERNET hRequest, DWORD dwOption, LPVOID pBuffer, DWORD dwLength)
{
    std::string call = "InternetSetOptionW " + std::to_string(dwOption);
    if (dwOption == INTERNET_OPTION_SECURITY_FLAGS)
    {
        call += " " + Hex(*static_cast<const DWORD*>(pBuffer));
    }
    UseRequest(hRequest, call);
    return Done(call, InternetSetOptionW(hRequest, dwOption, pBuffer, dwLength));
}

BOOL WINAPI Send(HINTERNET hRequest, LPCWSTR pszHeaders, DWORD cchHeaders, LPVOID pBody, DWORD cbBody)
{
    UseRequest(hRequest, "HttpSendRequestW");
    const std::optional<DWORD> error = Take(g_pState->sends);
    if (error)
    {
        SetLastError(*error);
        return Done("HttpSendRequestW", FALSE);
    }
    return Done("HttpSendRequestW", HttpSendRequestW(hRequest, pszHeaders, cchHeaders, pBody, cbBody));
}

BOOL WINAPI QueryInfo(HINTERNET hRequest, DWORD dwLevel, LPVOID pBuffer, LPDWORD pdwLength, LPDWORD pdwIndex)
{
    const std::string call = "HttpQueryInfoW " + std::to_string(dwLevel);
    UseRequest(hRequest, call);
    return Done(call, HttpQueryInfoW(hRequest, dwLevel, pBuffer, pdwLength, pdwIndex));
}

BOOL WINAPI Read(HINTERNET hRequest, LPVOID pBuffer, DWORD cb, LPDWORD pcbRead)
{
    UseRequest(hRequest, "InternetReadFile");
    return Done("InternetReadFile", InternetReadFile(hRequest, pBuffer, cb, pcbRead));
}

DWORD WINAPI ShowDialog(HWND hWnd, HINTERNET hRequest, DWORD dwError, DWORD dwFlags, LPVOID* ppData)
{
    UseRequest(hRequest, "InternetErrorDlg");
    const std::optional<DWORD> result = Take(g_pState->dialogs);
    return Done("InternetErrorDlg",
                result ? *result : InternetErrorDlg(hWnd, hRequest, dwError, dwFlags, ppData));
}

BOOL WINAPI Close(HINTERNET hInternet)
{
    {
        // Before the platform does it: from then on another thread may get the number.
        const std::lock_guard lock(g_pState->mutex);
        g_pState->requests.erase(hInternet);
    }
    return InternetCloseHandle(hInternet);
}

HANDLE WINAPI Create(LPCWSTR pszPath, DWORD dwAccess, DWORD dwShare, LPSECURITY_ATTRIBUTES pSecurity,
                     DWORD dwDisposition, DWORD dwAttributes, HANDLE hTemplate)
{
    return Done("CreateFileW",
                CreateFileW(pszPath, dwAccess, dwShare, pSecurity, dwDisposition, dwAttributes, hTemplate));
}

BOOL WINAPI Write(HANDLE hFile, LPCVOID pBytes, DWORD cb, LPDWORD pcbWritten, LPOVERLAPPED pOverlapped)
{
    return Done("WriteFile", WriteFile(hFile, pBytes, cb, pcbWritten, pOverlapped));
}

BOOL WINAPI Delete(LPCWSTR pszPath)
{
    return Done("DeleteFileW", DeleteFileW(pszPath));
}

}  // namespace

CWorkerWatch::CWorkerWatch()
{
    g_pState = std::make_unique<State>();
    m_imports.Add("InternetConnectW", Connect);
    m_imports.Add("HttpOpenRequestW", Open);
    m_imports.Add("InternetQueryOptionW", QueryOption);
    m_imports.Add("InternetSetOptionW", SetOption);
    m_imports.Add("HttpSendRequestW", Send);
    m_imports.Add("HttpQueryInfoW", QueryInfo);
    m_imports.Add("InternetReadFile", Read);
    m_imports.Add("InternetErrorDlg", ShowDialog);
    m_imports.Add("InternetCloseHandle", Close);
    m_imports.Add("CreateFileW", Create);
    m_imports.Add("WriteFile", Write);
    m_imports.Add("DeleteFileW", Delete);
}

CWorkerWatch::~CWorkerWatch()
{
    for (const HINTERNET hFiller : g_pState->fillers)
    {
        InternetCloseHandle(hFiller);
    }
    g_pState.reset();
}

CJournal& CWorkerWatch::Calls()
{
    return g_pState->journal;
}

std::vector<std::string> CWorkerWatch::CallsOf(int worker) const
{
    const std::string prefix = std::to_string(worker) + ": ";
    std::vector<std::string> calls;
    for (const std::string& call : g_pState->journal.Texts(CALL_NET))
    {
        if (call.starts_with(prefix))
        {
            calls.push_back(call.substr(prefix.size()));
        }
    }
    return calls;
}

std::vector<std::string> CWorkerWatch::Faults() const
{
    const std::lock_guard lock(g_pState->mutex);
    return g_pState->faults;
}

HINTERNET CWorkerWatch::RequestOf(int worker) const
{
    const std::lock_guard lock(g_pState->mutex);
    const auto request = g_pState->lastRequests.find(worker);
    return request == g_pState->lastRequests.end() ? nullptr : request->second;
}

void CWorkerWatch::HandOn(HINTERNET hRequest, int worker, const std::function<void()>& post)
{
    const std::string prefix = std::to_string(worker) + ": ";
    CHold opened(Calls(), prefix + "HttpOpenRequestW");
    CHold connected(Calls(), prefix + "InternetConnectW");
    // A session or a connection that is opened now must not get the number.
    Occupy(hRequest);
    g_pState->hHandedOn = hRequest;
    post();
    EXPECT_TRUE(connected.Reached());
    g_pState->hHandedOn = nullptr;
    Occupy(hRequest);
    Free(hRequest);
    connected.LetGo();
    EXPECT_TRUE(opened.Reached());
    EXPECT_TRUE(!IsWine() || RequestOf(worker) == hRequest) << "the number was not handed out again";
}

void CWorkerWatch::EndNextSend(int worker, DWORD dwError)
{
    const std::lock_guard lock(g_pState->mutex);
    g_pState->sends[worker] = dwError;
}

void CWorkerWatch::EndNextDialog(int worker, DWORD dwResult)
{
    const std::lock_guard lock(g_pState->mutex);
    g_pState->dialogs[worker] = dwResult;
}
