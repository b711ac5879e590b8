#include "support/calls/PlatformCalls.h"

#include <algorithm>
#include <mutex>

#include "support/calls/CallRows.h"
#include "support/ImportPatch.h"

namespace
{

std::vector<CCallRow> MakeRows()
{
    std::vector<CCallRow> rows;
    AddWinInetRows(rows);
    AddSystemRows(rows);
    AddDiscoveryRows(rows);
    AddRuntimeRows(rows);
    AddUntouchedRows(rows);
    for (size_t index = 0; index < rows.size(); ++index)
    {
        if (rows[index].pIndex != nullptr)
        {
            *rows[index].pIndex = index;
        }
    }
    return rows;
}

}  // namespace

const std::vector<CCallRow>& CallRows()
{
    static const std::vector<CCallRow> s_rows = MakeRows();
    return s_rows;
}

const CCallRow* FindCallRow(const std::string& name)
{
    const std::vector<CCallRow>& rows = CallRows();
    const auto found =
        std::find_if(rows.begin(), rows.end(), [&](const CCallRow& row) { return row.name == name; });
    return found == rows.end() ? nullptr : &*found;
}

CPlatformCalls::CPlatformCalls(HMODULE hModule)
    : m_counts(std::make_unique<std::atomic<unsigned>[]>(CallRows().size()))
{
    std::vector<std::pair<const CCallRow*, void**>> entries;
    CImportPatch::ForEach(hModule,
                          [&](const char*, const char* pszName, void** ppEntry)
                          {
                              const CCallRow* const pRow = FindCallRow(pszName);
                              if (pRow == nullptr)
                              {
                                  m_unknown.push_back(pszName);
                              }
                              else if (pRow->pThunk != nullptr)
                              {
                                  entries.emplace_back(pRow, ppEntry);
                              }
                          });
    const auto [first, last] =
        std::minmax_element(entries.begin(), entries.end(),
                            [](const auto& left, const auto& right) { return left.second < right.second; });
    // In one go: a change of protection is slow.
    const size_t cb = static_cast<size_t>(last->second + 1 - first->second) * sizeof(void*);
    void** const ppFirst = first->second;
    DWORD dwProtection = 0;
    VirtualProtect(ppFirst, cb, PAGE_READWRITE, &dwProtection);
    for (const auto& [pRow, ppEntry] : entries)
    {
        *pRow->ppNext = *ppEntry;
        *ppEntry = pRow->pThunk;
    }
    VirtualProtect(ppFirst, cb, dwProtection, &dwProtection);
    s_pCurrent = this;
}

CPlatformCalls::~CPlatformCalls()
{
    s_pCurrent = nullptr;
}

void CPlatformCalls::Begin()
{
    m_bBegun = true;
}

void CPlatformCalls::Begin(const Failure& failure)
{
    m_failure = failure;
    Begin();
}

std::vector<std::string> CPlatformCalls::Unknown() const
{
    const std::lock_guard lock(m_mutex);
    return m_unknown;
}

size_t CPlatformCalls::Enter(size_t row)
{
    if (!m_bBegun)
    {
        return 0;
    }
    const unsigned nth = ++m_counts[row];
    if (m_onCall)
    {
        m_onCall(CallRows()[row], false);
    }
    const bool bFails = m_failure.nth != 0 && row == m_failure.row &&
                        (nth == m_failure.nth || (m_failure.bFromThenOn && nth > m_failure.nth));
    if (!bFails)
    {
        return 0;
    }
    ++m_failures;
    return m_failure.way + 1;
}

void CPlatformCalls::Leave(size_t row)
{
    if (m_bBegun && m_onCall)
    {
        m_onCall(CallRows()[row], true);
    }
}

FARPROC CPlatformCalls::Wrap(const char* pszName, FARPROC pfn)
{
    const CCallRow* const pRow = FindCallRow(pszName);
    if (pRow == nullptr)
    {
        const std::lock_guard lock(m_mutex);
        m_unknown.push_back(pszName);
    }
    if (pRow == nullptr || pRow->pThunk == nullptr || pfn == nullptr)
    {
        return pfn;
    }
    *pRow->ppNext = reinterpret_cast<void*>(pfn);
    return reinterpret_cast<FARPROC>(pRow->pThunk);
}
