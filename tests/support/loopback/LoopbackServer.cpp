#include "support/loopback/LoopbackServer.h"

#include <process.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <utility>

namespace
{

constexpr DWORD kLookMs = 100;

class CExclusiveLock
{
public:
    explicit CExclusiveLock(SRWLOCK& lock) : m_lock(lock) { AcquireSRWLockExclusive(&m_lock); }
    ~CExclusiveLock() { ReleaseSRWLockExclusive(&m_lock); }
    CExclusiveLock(const CExclusiveLock&) = delete;
    CExclusiveLock& operator=(const CExclusiveLock&) = delete;

private:
    SRWLOCK& m_lock;
};

// Waits, with the lock held, until the condition is true; false when the time has run out.
template <typename Condition>
bool AwaitChange(CONDITION_VARIABLE& changed, SRWLOCK& lock, DWORD dwMilliseconds, Condition condition)
{
    const ULONGLONG deadline = GetTickCount64() + dwMilliseconds;
    while (!condition())
    {
        const ULONGLONG now = GetTickCount64();
        if (now >= deadline)
        {
            return false;
        }
        SleepConditionVariableSRW(&changed, &lock, static_cast<DWORD>(deadline - now), 0);
    }
    return true;
}

[[noreturn]] void Fail(const char* pszWhat)
{
    std::printf("LoopbackServer: %s failed with error %d\n", pszWhat, WSAGetLastError());
    std::fflush(stdout);
    std::_Exit(3);
}

SOCKET Listen(unsigned short& port)
{
    WSADATA data = {};
    if (WSAStartup(MAKEWORD(2, 2), &data) != 0)
    {
        Fail("WSAStartup");
    }
    const SOCKET listener = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    if (listener == INVALID_SOCKET)
    {
        Fail("socket");
    }
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    int length = sizeof(address);
    if (bind(listener, reinterpret_cast<const sockaddr*>(&address), length) != 0 ||
        listen(listener, SOMAXCONN) != 0 ||
        getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length) != 0)
    {
        Fail("listening on 127.0.0.1");
    }
    port = ntohs(address.sin_port);
    return listener;
}

HANDLE StartThread(unsigned(__stdcall* pfnProc)(void*), void* argument)
{
    return reinterpret_cast<HANDLE>(_beginthreadex(nullptr, 0, pfnProc, argument, 0, nullptr));
}

void Join(HANDLE hThread)
{
    WaitForSingleObject(hThread, INFINITE);
    CloseHandle(hThread);
}

}  // namespace

CLoopbackServer::CLoopbackServer(Script script, ReadMode mode)
    : m_script(std::move(script)),
      m_mode(mode),
      m_listener(Listen(m_port)),
      m_hStop(CreateEventW(nullptr, TRUE, FALSE, nullptr)),
      m_hRelease(CreateEventW(nullptr, TRUE, FALSE, nullptr))
{
    m_hAcceptThread = StartThread(AcceptProc, this);
}

CLoopbackServer::~CLoopbackServer()
{
    Stop();
    CloseHandle(m_hRelease);
    CloseHandle(m_hStop);
    WSACleanup();
}

std::wstring CLoopbackServer::Url(std::wstring_view target) const
{
    return (L"http://127.0.0.1:" + std::to_wstring(m_port)).append(target);
}

std::vector<CLoopbackRequest> CLoopbackServer::Requests() const
{
    const CExclusiveLock lock(m_lock);
    return m_requests;
}

std::vector<std::string> CLoopbackServer::BodiesFor(std::string_view target) const
{
    std::vector<std::string> bodies;
    for (const CLoopbackRequest& request : Requests())
    {
        if (request.strTarget == target)
        {
            bodies.push_back(request.strBody);
        }
    }
    return bodies;
}

bool CLoopbackServer::AwaitRequests(size_t count, DWORD dwMilliseconds) const
{
    const CExclusiveLock lock(m_lock);
    return AwaitChange(m_changed, m_lock, dwMilliseconds, [&] { return m_requests.size() >= count; });
}

size_t CLoopbackServer::CountConnections() const
{
    const CExclusiveLock lock(m_lock);
    return m_cConnections;
}

void CLoopbackServer::Forget()
{
    std::list<CWorker> ended;
    {
        const CExclusiveLock lock(m_lock);
        m_requests.clear();
        for (auto worker = m_workers.begin(); worker != m_workers.end();)
        {
            const auto next = std::next(worker);
            if (worker->bEnded)
            {
                ended.splice(ended.end(), m_workers, worker);
            }
            worker = next;
        }
    }
    Join(ended);
}

bool CLoopbackServer::AwaitIdle(DWORD dwMilliseconds)
{
    {
        const CExclusiveLock lock(m_lock);
        if (!AwaitChange(m_changed, m_lock, dwMilliseconds, [&] { return m_cServing == 0; }))
        {
            return false;
        }
    }
    JoinWorkers();
    return true;
}

void CLoopbackServer::Release()
{
    SetEvent(m_hRelease);
}

void CLoopbackServer::Stop()
{
    if (m_hAcceptThread == nullptr)
    {
        return;
    }
    SetEvent(m_hStop);
    ::Join(std::exchange(m_hAcceptThread, nullptr));
    JoinWorkers();
    closesocket(m_listener);
}

unsigned __stdcall CLoopbackServer::AcceptProc(void* server)
{
    static_cast<CLoopbackServer*>(server)->Accept();
    return 0;
}

void CLoopbackServer::Accept()
{
    const WSAEVENT hArrived = WSACreateEvent();
    WSAEventSelect(m_listener, hArrived, FD_ACCEPT);
    const HANDLE handles[] = {m_hStop, hArrived};
    // When many connections arrive at one moment, Wine now and then forgets to say so: look by oneself.
    while (WaitForMultipleObjects(2, handles, FALSE, kLookMs) != WAIT_OBJECT_0)
    {
        WSANETWORKEVENTS events = {};
        WSAEnumNetworkEvents(m_listener, hArrived, &events);
        for (SOCKET socket; (socket = accept(m_listener, nullptr, nullptr)) != INVALID_SOCKET;)
        {
            StartWorker(socket);
        }
    }
    WSACloseEvent(hArrived);
}

void CLoopbackServer::StartWorker(SOCKET socket)
{
    const CExclusiveLock lock(m_lock);
    CWorker& worker = m_workers.emplace_back(CWorker{this, socket, nullptr, false});
    ++m_cServing;
    ++m_cConnections;
    worker.hThread = StartThread(ConnectionProc, &worker);
    if (worker.hThread == nullptr)
    {
        Fail("starting a thread");
    }
}

unsigned __stdcall CLoopbackServer::ConnectionProc(void* worker)
{
    CWorker* const pWorker = static_cast<CWorker*>(worker);
    pWorker->pServer->Serve(*pWorker);
    return 0;
}

void CLoopbackServer::Serve(CWorker& worker)
{
    {
        CLoopbackConnection connection(worker.socket, m_hStop, m_hRelease);
        std::string received;
        CLoopbackRequest request;
        if (m_mode == READ_NOTHING)
        {
            ServeRequest(request, connection);
            connection.Close();
        }
        while (ReadRequest(connection, received, request))
        {
            ServeRequest(request, connection);
            if (request.Header("Connection") == "close")
            {
                connection.Close();
            }
        }
    }
    {
        const CExclusiveLock lock(m_lock);
        --m_cServing;
        worker.bEnded = true;
    }
    WakeAllConditionVariable(&m_changed);
}

void CLoopbackServer::ServeRequest(const CLoopbackRequest& request, CLoopbackConnection& connection)
{
    {
        const CExclusiveLock lock(m_lock);
        m_requests.push_back(request);
    }
    WakeAllConditionVariable(&m_changed);
    m_script(request, connection);
}

// Takes the next request out of received, which holds what has arrived of it so far.
bool CLoopbackServer::ReadRequest(CLoopbackConnection& connection, std::string& received,
                                  CLoopbackRequest& request) const
{
    size_t headEnd = 0;
    while ((headEnd = received.find("\r\n\r\n")) == std::string::npos)
    {
        if (!connection.Receive(received))
        {
            return false;
        }
    }
    request = {};
    request.strHead = received.substr(0, headEnd + 4);
    received.erase(0, headEnd + 4);
    if (!request.ParseHead())
    {
        return false;
    }
    const size_t bodyLength = request.ContentLength();
    while (m_mode == READ_WHOLE && received.size() < bodyLength)
    {
        if (!connection.Receive(received))
        {
            return false;
        }
    }
    const size_t arrived = std::min(received.size(), bodyLength);
    request.strBody = received.substr(0, arrived);
    received.erase(0, arrived);
    return true;
}

void CLoopbackServer::JoinWorkers()
{
    std::list<CWorker> workers;
    {
        const CExclusiveLock lock(m_lock);
        workers.swap(m_workers);
    }
    Join(workers);
}

void CLoopbackServer::Join(const std::list<CWorker>& workers)
{
    for (const CWorker& worker : workers)
    {
        ::Join(worker.hThread);
    }
}
