// Addresses that a connection does not get through to.
#pragma once

#include <winsock2.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

// A server whose queue of arriving connections is full and never emptied: under Linux a further one hangs,
// elsewhere it is refused.
class CFullServer
{
public:
    CFullServer()
    {
        WSADATA data = {};
        WSAStartup(MAKEWORD(2, 2), &data);
        m_sockets.push_back(socket(AF_INET, SOCK_STREAM, IPPROTO_TCP));
        m_address.sin_family = AF_INET;
        m_address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        int length = sizeof(m_address);
        EXPECT_EQ(bind(m_sockets[0], Address(), length), 0);
        EXPECT_EQ(listen(m_sockets[0], 1), 0);
        EXPECT_EQ(getsockname(m_sockets[0], reinterpret_cast<sockaddr*>(&m_address), &length), 0);
        while (m_sockets.size() < 10 && ConnectAtOnce())
        {
        }
        EXPECT_LT(m_sockets.size(), 10u) << "the queue does not fill";
    }
    ~CFullServer()
    {
        Close();
        WSACleanup();
    }
    CFullServer(const CFullServer&) = delete;
    CFullServer& operator=(const CFullServer&) = delete;

    void Close()
    {
        for (const SOCKET socket : m_sockets)
        {
            closesocket(socket);
        }
        m_sockets.clear();
    }

    std::wstring Url() const
    {
        return L"http://127.0.0.1:" + std::to_wstring(ntohs(m_address.sin_port)) + L"/";
    }

private:
    const sockaddr* Address() const { return reinterpret_cast<const sockaddr*>(&m_address); }

    bool ConnectAtOnce()
    {
        const SOCKET client = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
        m_sockets.push_back(client);
        u_long bNonBlocking = 1;
        ioctlsocket(client, static_cast<long>(FIONBIO), &bNonBlocking);
        connect(client, Address(), sizeof(m_address));
        fd_set writable = {};
        writable.fd_count = 1;
        writable.fd_array[0] = client;
        timeval patience = {0, 300000};
        return select(0, nullptr, &writable, nullptr, &patience) == 1;
    }

    sockaddr_in m_address = {};
    std::vector<SOCKET> m_sockets;
};

// A port that nobody listens on, and that nobody else gets meanwhile.
class CRefusingPort
{
public:
    CRefusingPort()
    {
        WSADATA data = {};
        WSAStartup(MAKEWORD(2, 2), &data);
        m_socket = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        int length = sizeof(address);
        EXPECT_EQ(bind(m_socket, reinterpret_cast<const sockaddr*>(&address), length), 0);
        EXPECT_EQ(getsockname(m_socket, reinterpret_cast<sockaddr*>(&address), &length), 0);
        m_port = ntohs(address.sin_port);
    }
    ~CRefusingPort()
    {
        closesocket(m_socket);
        WSACleanup();
    }
    CRefusingPort(const CRefusingPort&) = delete;
    CRefusingPort& operator=(const CRefusingPort&) = delete;

    std::wstring Url() const { return L"http://127.0.0.1:" + std::to_wstring(m_port) + L"/"; }

private:
    SOCKET m_socket = INVALID_SOCKET;
    unsigned short m_port = 0;
};
