#include "tracecat/TraceView.h"

#include <algorithm>

namespace
{

constexpr size_t kIndent = 2;

char Lower(char letter)
{
    return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

bool HasText(std::string_view text, std::string_view part)
{
    return std::search(text.begin(), text.end(), part.begin(), part.end(),
                       [](char a, char b) { return Lower(a) == Lower(b); }) != text.end() ||
           part.empty();
}

bool IsAmong(const std::vector<unsigned long>& numbers, unsigned long number)
{
    return numbers.empty() || std::find(numbers.begin(), numbers.end(), number) != numbers.end();
}

}  // namespace

std::string CTraceView::Show(std::string_view line)
{
    std::optional<TraceEntry> entry = ParseEntry(line);
    if (!entry)
    {
        return std::string(line).append(1, '\n');
    }
    const CallPlace place = m_calls.Take(*entry);
    if (m_options.bDecode)
    {
        entry->strText = DecodePercent(entry->strText);
    }
    if (!IsWanted(*entry, place))
    {
        return "";
    }
    std::string shown;
    if (entry->strDate != m_strDate)
    {
        m_strDate = entry->strDate;
        shown = "== " + m_strDate + ", UTC: time, process.thread, level, record\n";
    }
    shown += entry->strTime + " " + std::to_string(entry->process) + "." + std::to_string(entry->thread) +
             " " + std::to_string(entry->level) + " | " + std::string(kIndent * place.depth, ' ') +
             entry->strText;
    if (place.nTook)
    {
        shown += "  (" + FormatDuration(*place.nTook) + ")";
    }
    return shown.append(1, '\n');
}

bool CTraceView::IsWanted(const TraceEntry& entry, const CallPlace& place) const
{
    return (!m_options.level || entry.level >= *m_options.level) &&
           IsAmong(m_options.processes, entry.process) && IsAmong(m_options.threads, entry.thread) &&
           HasText(entry.strText, m_options.strText) &&
           (m_options.strFunction.empty() ||
            std::any_of(place.calls.begin(), place.calls.end(),
                        [&](const Call& call) { return HasText(call.strName, m_options.strFunction); }));
}
