// The answers that a scripted function gives, one a call: the steps in their order, then the standing
// answer for ever.
#pragma once

#include <deque>
#include <utility>

#include "support/Mutex.h"

template <typename Step>
class CScript
{
public:
    explicit CScript(Step standing) : m_standing(std::move(standing)) {}

    CScript& Then(Step step)
    {
        const std::lock_guard lock(m_mutex);
        m_steps.push_back(std::move(step));
        return *this;
    }

    void Always(Step step)
    {
        const std::lock_guard lock(m_mutex);
        m_steps.clear();
        m_standing = std::move(step);
    }

    Step Next()
    {
        const std::lock_guard lock(m_mutex);
        if (m_steps.empty())
        {
            return m_standing;
        }
        Step step = std::move(m_steps.front());
        m_steps.pop_front();
        return step;
    }

private:
    CMutex m_mutex;
    std::deque<Step> m_steps;
    Step m_standing;
};
