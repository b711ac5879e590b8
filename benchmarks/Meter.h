// Looks at this process: time, processor time, memory, and what it holds of the platform.
#pragma once

#include <functional>
#include <string>

// In milliseconds.
double Now();
double ProcessorTime();
double Measure(const std::function<void()>& work);

// The most memory that was used at once since ResetPeak, in KB.
class CPeakMemory
{
public:
    // The process's number on the Unix host below Wine, which alone can forget a peak; empty: nothing is
    // measured.
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
