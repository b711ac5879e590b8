#include "support/loopback/LoopbackConnection.h"

#include <algorithm>

namespace
{

constexpr size_t kMaxPiece = 1024 * 1024;

}  // namespace

CLoopbackConnection::CLoopbackConnection(SOCKET socket, HANDLE hStop, HANDLE hRelease)
    : m_socket(socket), m_hEvent(WSACreateEvent()), m_hStop(hStop), m_hRelease(hRelease)
{
    // Without this an answer in two pieces waits for the peer's delayed acknowledgement.
    const BOOL bNoDelay = TRUE;
    setsockopt(m_socket, IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<const char*>(&bNoDelay),
               sizeof(bNoDelay));
    WSAEventSelect(m_socket, m_hEvent, FD_READ | FD_WRITE | FD_CLOSE);
}

CLoopbackConnection::~CLoopbackConnection()
{
    Close();
    WSACloseEvent(m_hEvent);
}

bool CLoopbackConnection::Send(std::string_view bytes)
{
    while (IsOpen() && !bytes.empty())
    {
        const int sent = send(m_socket, bytes.data(), static_cast<int>(std::min(bytes.size(), kMaxPiece)), 0);
        if (sent > 0)
        {
            bytes.remove_prefix(static_cast<size_t>(sent));
        }
        else if (WSAGetLastError() != WSAEWOULDBLOCK || !AwaitSocket())
        {
            Close();
        }
    }
    return IsOpen();
}

bool CLoopbackConnection::Trickle(std::string_view bytes, size_t pieceSize, DWORD dwPauseMs)
{
    for (; !bytes.empty(); bytes.remove_prefix(std::min(pieceSize, bytes.size())))
    {
        if (!Send(bytes.substr(0, pieceSize)) || !Pause(dwPauseMs))
        {
            return false;
        }
    }
    return IsOpen();
}

bool CLoopbackConnection::Pause(DWORD dwMilliseconds) const
{
    return WaitForSingleObject(m_hStop, dwMilliseconds) == WAIT_TIMEOUT;
}

bool CLoopbackConnection::AwaitRelease(DWORD dwMilliseconds) const
{
    const HANDLE handles[] = {m_hStop, m_hRelease};
    return WaitForMultipleObjects(2, handles, FALSE, dwMilliseconds) != WAIT_TIMEOUT;
}

void CLoopbackConnection::Stall()
{
    const HANDLE handles[] = {m_hStop, m_hRelease, m_hEvent};
    while (IsOpen() && !m_bPeerClosed &&
           WaitForMultipleObjects(3, handles, FALSE, INFINITE) == WAIT_OBJECT_0 + 2)
    {
        WSANETWORKEVENTS events = {};
        WSAEnumNetworkEvents(m_socket, m_hEvent, &events);
        m_bPeerClosed = (events.lNetworkEvents & FD_CLOSE) != 0;
    }
}

bool CLoopbackConnection::Receive(std::string& bytes)
{
    char piece[16384];
    while (IsOpen())
    {
        const int received = recv(m_socket, piece, static_cast<int>(sizeof(piece)), 0);
        if (received > 0)
        {
            bytes.append(piece, static_cast<size_t>(received));
            return true;
        }
        if (received == 0 || WSAGetLastError() != WSAEWOULDBLOCK || !AwaitSocket())
        {
            Close();
        }
    }
    return false;
}

void CLoopbackConnection::Close()
{
    if (IsOpen())
    {
        shutdown(m_socket, SD_SEND);
        closesocket(m_socket);
        m_socket = INVALID_SOCKET;
    }
}

void CLoopbackConnection::Reset()
{
    if (IsOpen())
    {
        const LINGER linger = {1, 0};
        setsockopt(m_socket, SOL_SOCKET, SO_LINGER, reinterpret_cast<const char*>(&linger), sizeof(linger));
        closesocket(m_socket);
        m_socket = INVALID_SOCKET;
    }
}

// Waits until the socket may have news; false when the server stops.
bool CLoopbackConnection::AwaitSocket()
{
    const HANDLE handles[] = {m_hStop, m_hEvent};
    if (WaitForMultipleObjects(2, handles, FALSE, INFINITE) != WAIT_OBJECT_0 + 1)
    {
        return false;
    }
    WSANETWORKEVENTS events = {};
    WSAEnumNetworkEvents(m_socket, m_hEvent, &events);
    m_bPeerClosed = m_bPeerClosed || (events.lNetworkEvents & FD_CLOSE) != 0;
    return true;
}
