// Looks at this process: time, processor time, memory, and what it holds of the platform.
#pragma once

#include <winsock2.h>

#include <functional>
#include <string>

// In milliseconds.
double Now();
double Measure(const std::function<void()>& work);

// The processor time of this process, from a server on the Unix host below Wine (processor_clock.py).
class CProcessorClock
{
public:
    // Raises CFailure when the server is not there.
    CProcessorClock(unsigned short port, const std::string& unixProcess);
    ~CProcessorClock();
    CProcessorClock(const CProcessorClock&) = delete;
    CProcessorClock& operator=(const CProcessorClock&) = delete;

    // In milliseconds. Raises CFailure when no answer comes.
    double Now();

private:
    SOCKET m_socket;
};

// The most memory that was used at once since ResetPeak, in KB.
class CPeakMemory
{
public:
    // The process's number on the Unix host below Wine, which alone can forget a peak.
    explicit CPeakMemory(const std::string& unixProcess) : m_unixProcess(unixProcess) {}

    // Begins anew at what is used now. False where that cannot be done.
    bool Reset();
    double Growth() const;

private:
    const std::string m_unixProcess;
    double m_begin = 0;
};

struct CHoldings
{
    int threads;
    int handles;
};

CHoldings Holdings();
// The same once it has come down to the limit; what has not after half a second stays.
CHoldings SettledHoldings(const CHoldings& limit);
