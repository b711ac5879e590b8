// A host of the built module: loads it from beside the test program, makes a component through
// DllGetClassObject, posts, polls while it pumps messages, takes the answer.
//
// Two things are taken out of chance's hands. A worker does not begin before PostRequest has returned:
// one that ended earlier would have its final status overwritten by the starter's. And the machine counts
// as connected, whatever its network is. The rest is real: WinINet, sockets, files.
#pragma once

#include <windows.h>

#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "kvHttp/HttpRaw.h"

// A status by its name, in failure messages.
struct Status
{
    unsigned long value;
    bool operator==(const Status&) const = default;
};
std::ostream& operator<<(std::ostream& stream, Status status);

inline constexpr DWORD kPatienceMs = 20000;

class CHttpRawHost
{
public:
    CHttpRawHost();
    // Releases the component.
    ~CHttpRawHost();
    CHttpRawHost(const CHttpRawHost&) = delete;
    CHttpRawHost& operator=(const CHttpRawHost&) = delete;

    IHttpRaw* operator->() const { return m_pHttpRaw; }

    // Posts and expects S_OK.
    void Post(const std::wstring& url, const std::wstring& data = L"a=1");

    // Polls until the exchange has ended; the last status seen when it does not within kPatienceMs.
    Status AwaitEnd();
    // As above for one status; false when it does not come.
    bool AwaitStatus(HttpRequestStatus emStatus);
    // The different statuses that the polls of the last exchange saw, in order.
    const std::vector<unsigned long>& SeenStatuses() const { return m_seen; }

    Status PostAndAwaitEnd(const std::wstring& url, const std::wstring& data = L"a=1");

    // Nothing when there is no answer in memory.
    std::optional<std::wstring> TakeAnswer() const;

    // Gives the component up and tells how many milliseconds that took. Only once.
    DWORD Release();

    static HMODULE Module();

private:
    unsigned long Poll();
    void PumpMessages() const;

    IHttpRaw* m_pHttpRaw;
    std::vector<unsigned long> m_seen;
};
