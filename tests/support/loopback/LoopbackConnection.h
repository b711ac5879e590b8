// One accepted connection of the loopback server, as a script uses it: it can answer well or misbehave
// at any byte. Used on the connection's own thread only.
#pragma once

#include <winsock2.h>

#include <string>
#include <string_view>

class CLoopbackConnection
{
public:
    // Takes over the socket. The events are borrowed: hStop ends every call here at once, hRelease ends
    // the stalls.
    CLoopbackConnection(SOCKET socket, HANDLE hStop, HANDLE hRelease);
    ~CLoopbackConnection();
    CLoopbackConnection(const CLoopbackConnection&) = delete;
    CLoopbackConnection& operator=(const CLoopbackConnection&) = delete;

    // One send, as far as the peer takes it. False, with the connection closed, when the peer has gone or
    // the server stops.
    bool Send(std::string_view bytes);

    // Sends in pieces of that many bytes with a pause after each.
    bool Trickle(std::string_view bytes, size_t pieceSize, DWORD dwPauseMs);

    // False when the server stops meanwhile.
    bool Pause(DWORD dwMilliseconds) const;

    // Waits at most that long; true when the server has been released or stops.
    bool AwaitRelease(DWORD dwMilliseconds) const;

    // Stays silent until the server is released or stopped, or the peer hangs up.
    void Stall();

    // Appends what arrives next to bytes; false when the peer has closed or the server stops.
    bool Receive(std::string& bytes);

    // Ends the connection properly, or with a reset that throws away what is under way.
    void Close();
    void Reset();

    bool IsOpen() const { return m_socket != INVALID_SOCKET; }

private:
    bool AwaitSocket();

    SOCKET m_socket;
    WSAEVENT m_hEvent;
    HANDLE m_hStop;
    HANDLE m_hRelease;
    bool m_bPeerClosed = false;
};
