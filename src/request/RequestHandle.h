// The request handle of one exchange, and whether the exchange is abandoned. It is the one thing that the
// worker and the owner's thread both act on while an exchange runs: the worker opens, uses and closes it, and
// the owner takes it away.
//
//   closed ----- Open -----> open ----- Close -----> closed       the worker, for each attempt
//   closed or open -------- Abandon -------> abandoned            the owner: released, or overtaken by a send
//   abandoned -------------- Renew -------------> closed          the owner, while no worker is inside
//
// A closed number may belong to another exchange at once. So nobody can have the handle: each platform call
// asks for it anew, and is not made once the exchange is abandoned. What remains is the instant between the
// question and the call.
#pragma once

#include <windows.h>
#include <wininet.h>

#include <atomic>

class CRequestHandle
{
public:
    CRequestHandle() = default;
    ~CRequestHandle() { Abandon(); }
    CRequestHandle(const CRequestHandle&) = delete;
    CRequestHandle& operator=(const CRequestHandle&) = delete;

    // Worker. Takes over a handle that was just opened. False, and it is closed, when the exchange is
    // abandoned.
    bool Open(HINTERNET hRequest);

    // Worker. Makes one platform call with the handle and gives its result. Without a handle the call is not
    // made: the result is fallback, and the last error ERROR_INTERNET_OPERATION_CANCELLED.
    template <typename Result, typename Call>
    Result Use(Result fallback, Call call) const
    {
        const HINTERNET hRequest = m_handle;
        if (hRequest == nullptr || hRequest == Abandoned())
        {
            SetLastError(ERROR_INTERNET_OPERATION_CANCELLED);
            return fallback;
        }
        return call(hRequest);
    }

    // The same for a function whose first argument is the handle; false when it was not called or has failed.
    template <typename... Parameters, typename... Arguments>
    bool Call(BOOL(WINAPI* pfn)(HINTERNET, Parameters...), Arguments... arguments) const
    {
        return Use(FALSE, [&](HINTERNET hRequest) { return pfn(hRequest, arguments...); }) != FALSE;
    }

    // Worker.
    void Close();

    // Either thread.
    bool IsAbandoned() const { return m_handle == Abandoned(); }

    // Owner. Closes the handle, which makes a blocked call of the worker return. Does not wait.
    void Abandon();

    // Owner, while no worker is inside. A handle that is open stays so.
    void Renew();

private:
    // No handle has this value.
    static HINTERNET Abandoned() { return INVALID_HANDLE_VALUE; }

    std::atomic<HINTERNET> m_handle{nullptr};  // whoever takes it out of here closes it
};
