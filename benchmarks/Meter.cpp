#include "Meter.h"

#include <windows.h>

#include <psapi.h>

#include <cstdint>

#include "Poster.h"
#include "support/ProcessResources.h"

namespace
{

constexpr double kKB = 1024;
constexpr int kSettleTurns = 25;
constexpr DWORD kTurnMs = 20;
constexpr std::uintptr_t kHighestHandle = 0x1000;  // some hundred are in use

// Wine reports no count. In a lower range than the tests look through, since each look takes time.
int CountLowHandles()
{
    int count = 0;
    for (std::uintptr_t value = 4; value < kHighestHandle; value += 4)
    {
        DWORD dwFlags = 0;
        count += GetHandleInformation(reinterpret_cast<HANDLE>(value), &dwFlags) != FALSE;
    }
    return count;
}

PROCESS_MEMORY_COUNTERS Memory()
{
    PROCESS_MEMORY_COUNTERS counters = {};
    counters.cb = sizeof(counters);
    GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof(counters));
    return counters;
}

}  // namespace

double Now()
{
    LARGE_INTEGER frequency = {};
    LARGE_INTEGER count = {};
    QueryPerformanceFrequency(&frequency);
    QueryPerformanceCounter(&count);
    return static_cast<double>(count.QuadPart) * 1000.0 / static_cast<double>(frequency.QuadPart);
}

double Measure(const std::function<void()>& work)
{
    const double begin = Now();
    work();
    return Now() - begin;
}

CProcessorClock::CProcessorClock(unsigned short port, const std::string& unixProcess)
{
    WSADATA data = {};
    WSAStartup(MAKEWORD(2, 2), &data);
    m_socket = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const std::string process = unixProcess + "\n";
    if (connect(m_socket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 ||
        send(m_socket, process.c_str(), static_cast<int>(process.size()), 0) <= 0)
    {
        throw CFailure("the clock of the processor time cannot be asked");
    }
}

CProcessorClock::~CProcessorClock()
{
    closesocket(m_socket);
    WSACleanup();
}

double CProcessorClock::Now()
{
    double time = 0;
    if (send(m_socket, "?", 1, 0) != 1 ||
        recv(m_socket, reinterpret_cast<char*>(&time), sizeof(time), MSG_WAITALL) != sizeof(time))
    {
        throw CFailure("the clock of the processor time does not answer");
    }
    return time;
}

bool CPeakMemory::Reset()
{
    const std::string path = "\\\\?\\unix\\proc\\" + m_unixProcess + "\\clear_refs";
    const HANDLE hFile = CreateFileA(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                     OPEN_EXISTING, 0, nullptr);
    if (hFile == INVALID_HANDLE_VALUE)
    {
        return false;
    }
    DWORD dwWritten = 0;
    const bool bReset = WriteFile(hFile, "5", 1, &dwWritten, nullptr) != FALSE;
    CloseHandle(hFile);
    m_begin = static_cast<double>(Memory().WorkingSetSize) / kKB;
    return bReset;
}

double CPeakMemory::Growth() const
{
    return static_cast<double>(Memory().PeakWorkingSetSize) / kKB - m_begin;
}

CHoldings Holdings()
{
    return {CountThreads(), CountLowHandles()};
}

CHoldings SettledHoldings(const CHoldings& limit)
{
    CHoldings now = Holdings();
    for (int turn = 0; turn < kSettleTurns && (now.threads > limit.threads || now.handles > limit.handles);
         ++turn)
    {
        Sleep(kTurnMs);
        now = Holdings();
    }
    return now;
}
