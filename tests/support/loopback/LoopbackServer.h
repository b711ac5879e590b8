// An HTTP server on 127.0.0.1 for tests: it records every request, and a script answers, well or badly.
// It listens on a port that the system chooses, and gives each connection a thread. Its threads and
// handles are the platform's own, so that a test can count those of the process.
#pragma once

#include <winsock2.h>

#include <functional>
#include <list>
#include <string>
#include <string_view>
#include <vector>

#include "support/loopback/LoopbackConnection.h"
#include "support/loopback/LoopbackMessage.h"

class CLoopbackServer
{
public:
    // Runs on the connection's thread once for each request. A connection that the script leaves open
    // serves the next request.
    using Script = std::function<void(const CLoopbackRequest&, CLoopbackConnection&)>;

    enum ReadMode
    {
        READ_WHOLE,      // the script runs when the body has arrived
        READ_HEAD_ONLY,  // it runs after the head; nothing more is read, so that large bodies get stuck
        READ_NOTHING,    // it runs once for each connection, with an empty request, before anything is read
    };

    // Listens from here on. Ends the program with a message when it cannot.
    explicit CLoopbackServer(Script script, ReadMode mode = READ_WHOLE);
    ~CLoopbackServer();
    CLoopbackServer(const CLoopbackServer&) = delete;
    CLoopbackServer& operator=(const CLoopbackServer&) = delete;

    unsigned short Port() const { return m_port; }
    std::wstring Url(std::wstring_view target) const;

    std::vector<CLoopbackRequest> Requests() const;
    // The bodies of those for that target.
    std::vector<std::string> BodiesFor(std::string_view target) const;
    // False when fewer have arrived in that time.
    bool AwaitRequests(size_t count, DWORD dwMilliseconds) const;

    size_t CountConnections() const;

    // Gives back what has been recorded, and what the ended connections held: for servers that work for long.
    void Forget();

    // Waits until no connection is open and gives back what the ended ones held; false when one still is
    // open after that time.
    bool AwaitIdle(DWORD dwMilliseconds);

    // Lets every stalled connection go on, the later ones as well.
    void Release();

    // Closes everything and waits for the threads.
    void Stop();

private:
    struct CWorker
    {
        CLoopbackServer* pServer;
        SOCKET socket;
        HANDLE hThread;
        bool bEnded;
    };

    static unsigned __stdcall AcceptProc(void* server);
    static unsigned __stdcall ConnectionProc(void* worker);
    void Accept();
    void Serve(CWorker& worker);
    void ServeRequest(const CLoopbackRequest& request, CLoopbackConnection& connection);
    bool ReadRequest(CLoopbackConnection& connection, std::string& received, CLoopbackRequest& request) const;
    void StartWorker(SOCKET socket);
    void JoinWorkers();
    static void Join(const std::list<CWorker>& workers);

    const Script m_script;
    const ReadMode m_mode;
    unsigned short m_port = 0;
    SOCKET m_listener;
    HANDLE m_hStop = nullptr;
    HANDLE m_hRelease = nullptr;
    HANDLE m_hAcceptThread = nullptr;

    mutable SRWLOCK m_lock = SRWLOCK_INIT;  // around what follows
    mutable CONDITION_VARIABLE m_changed = CONDITION_VARIABLE_INIT;
    std::vector<CLoopbackRequest> m_requests;
    std::list<CWorker> m_workers;
    size_t m_cServing = 0;
    size_t m_cConnections = 0;
};
