#include "support/Journal.h"

#include <algorithm>

#include "support/Gate.h"

void CJournal::Add(CallKind kind, const std::string& text)
{
    std::vector<std::function<void()>> actions;
    {
        const std::lock_guard lock(m_mutex);
        m_entries.push_back({kind, text});
        for (Watch& watch : m_watches)
        {
            if (text.starts_with(watch.prefix) && --watch.remaining == 0)
            {
                actions.push_back(watch.action);
            }
        }
    }
    m_added.notify_all();
    for (const std::function<void()>& action : actions)
    {
        action();
    }
}

void CJournal::On(const std::string& prefix, int nth, std::function<void()> action)
{
    const std::lock_guard lock(m_mutex);
    m_watches.push_back({prefix, nth, std::move(action)});
}

bool CJournal::WaitFor(const std::string& prefix, size_t nth)
{
    std::unique_lock lock(m_mutex);
    return m_added.wait_for(lock, kPatience, [&] { return CountLocked(prefix) >= nth; });
}

std::vector<std::string> CJournal::Texts(unsigned kinds) const
{
    const std::lock_guard lock(m_mutex);
    std::vector<std::string> texts;
    for (const Entry& entry : m_entries)
    {
        if ((entry.kind & kinds) != 0)
        {
            texts.push_back(entry.text);
        }
    }
    return texts;
}

size_t CJournal::Count(const std::string& prefix) const
{
    const std::lock_guard lock(m_mutex);
    return CountLocked(prefix);
}

void CJournal::Clear()
{
    const std::lock_guard lock(m_mutex);
    m_entries.clear();
}

size_t CJournal::CountLocked(const std::string& prefix) const
{
    return static_cast<size_t>(std::count_if(m_entries.begin(), m_entries.end(), [&](const Entry& entry)
                                             { return entry.text.starts_with(prefix); }));
}
