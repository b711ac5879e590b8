#include "support/calls/Ledger.h"

#include <mutex>

void CLedger::Open(const char* pszKind, const void* pValue)
{
    if (pValue != nullptr)
    {
        const std::lock_guard lock(m_mutex);
        ++m_counts[{pszKind, pValue}];
    }
}

void CLedger::Close(const char* pszKind, const void* pValue)
{
    CloseOne(pszKind, pValue, true);
}

void CLedger::CloseIfKnown(const char* pszKind, const void* pValue)
{
    CloseOne(pszKind, pValue, false);
}

void CLedger::CloseOne(const char* pszKind, const void* pValue, bool bMustBeKnown)
{
    if (pValue == nullptr)
    {
        return;
    }
    const std::lock_guard lock(m_mutex);
    const auto found = m_counts.find({pszKind, pValue});
    if (found != m_counts.end() && found->second > 0)
    {
        --found->second;
    }
    else if (bMustBeKnown || found != m_counts.end())
    {
        m_faults.push_back(std::string(pszKind) + " given back that is not there");
    }
}

int CLedger::Count(const char* pszKind) const
{
    const std::lock_guard lock(m_mutex);
    int all = 0;
    for (const auto& [key, count] : m_counts)
    {
        all += key.first == pszKind ? count : 0;
    }
    return all;
}

std::vector<std::string> CLedger::Left() const
{
    const std::lock_guard lock(m_mutex);
    std::map<std::string, int> kinds;
    for (const auto& [key, count] : m_counts)
    {
        kinds[key.first] += count;
    }
    std::vector<std::string> left;
    for (const auto& [kind, count] : kinds)
    {
        if (count != 0)
        {
            left.push_back(std::to_string(count) + " " + kind);
        }
    }
    return left;
}

std::vector<std::string> CLedger::Faults() const
{
    const std::lock_guard lock(m_mutex);
    return m_faults;
}
