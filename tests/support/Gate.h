// A gate between threads, closed at first. Waiting is bounded: a product that never comes to open it
// fails the test instead of hanging it.
#pragma once

#include <chrono>

#include "support/Mutex.h"

inline constexpr std::chrono::seconds kPatience{20};

class CGate
{
public:
    void Open()
    {
        const std::lock_guard lock(m_mutex);
        m_bOpen = true;
        m_opened.notify_all();
    }

    // False when it stayed closed for too long.
    bool Wait()
    {
        std::unique_lock lock(m_mutex);
        return m_opened.wait_for(lock, kPatience, [this] { return m_bOpen; });
    }

private:
    CMutex m_mutex;
    CCondition m_opened;
    bool m_bOpen = false;
};
