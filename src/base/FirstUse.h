// A value that its first use makes, and that lasts as long as the module. A static of a function would do,
// but the C++ runtime of some MinGW compilers guards those with a handle that stays behind when the module is
// unloaded.
#pragma once

#include <windows.h>

#include <atomic>
#include <optional>

// Meant for an object of namespace scope, which needs no code to be initialised.
template <typename Value>
class CFirstUse
{
public:
    constexpr CFirstUse() = default;
    ~CFirstUse() = default;
    CFirstUse(const CFirstUse&) = delete;
    CFirstUse& operator=(const CFirstUse&) = delete;

    // Makes the value from the arguments at the first call; others wait for that. From any thread. Making it
    // must not throw, nor ask for the value.
    template <typename... Arguments>
    const Value& Get(Arguments... arguments)
    {
        if (!m_bTaken.exchange(true))
        {
            m_pValue = &m_value.emplace(arguments...);
        }
        const Value* pValue = m_pValue;
        for (; pValue == nullptr; pValue = m_pValue)
        {
            SwitchToThread();
        }
        return *pValue;
    }

private:
    std::atomic<bool> m_bTaken{false};
    std::atomic<const Value*> m_pValue{nullptr};
    std::optional<Value> m_value;
};
