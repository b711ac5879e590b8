#include "support/HandleTable.h"

#include <gtest/gtest.h>

#include <utility>

#include "support/Gate.h"

CHandleTable::~CHandleTable()
{
    for (const std::string& fault : m_faults)
    {
        ADD_FAILURE() << fault;
    }
    for (const auto& [handle, pObject] : m_objects)
    {
        ADD_FAILURE() << pObject->name << " was left open";
    }
}

void CHandleTable::Begin()
{
    const std::lock_guard lock(m_mutex);
    m_exchanges[GetCurrentThreadId()] = ++m_lastExchange;
}

HINTERNET CHandleTable::Open(std::shared_ptr<CHandleObject> pObject)
{
    constexpr uintptr_t kFirst = 0x10000;
    const std::lock_guard lock(m_mutex);
    if (m_free.empty())
    {
        m_free.push_back(reinterpret_cast<HINTERNET>(kFirst + 4 * m_objects.size()));
    }
    const HINTERNET handle = m_free.back();
    m_free.pop_back();
    pObject->name = pObject->pszKind + std::to_string(++m_counts[pObject->pszKind]);
    pObject->exchange = ExchangeLocked();
    m_names[handle] = pObject->name;
    m_objects[handle] = std::move(pObject);
    return handle;
}

BOOL CHandleTable::Close(HINTERNET handle)
{
    constexpr char kFunction[] = "InternetCloseHandle";
    const std::lock_guard lock(m_mutex);
    const auto found = m_objects.find(handle);
    if (found == m_objects.end() || found->second->bClosed)
    {
        FaultLocked(kFunction, NameLocked(handle) + " is not open");
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    CHandleObject& object = *found->second;
    if (GetCurrentThreadId() != m_dwOwnerId && ExchangeLocked() < object.exchange)
    {
        FaultLocked(kFunction, object.name + " is another one's");
    }
    object.bClosed = true;
    m_closed.notify_all();
    if (object.callsInside == 0)
    {
        FreeLocked(handle);
    }
    return TRUE;
}

bool CHandleTable::WaitForClose(const CHandleObject& object)
{
    std::unique_lock lock(m_mutex);
    const bool bClosed = m_closed.wait_for(lock, kPatience, [&] { return object.bClosed; });
    if (!bClosed)
    {
        FaultLocked("a blocked call", object.name + " was not closed");
    }
    return bClosed;
}

std::string CHandleTable::NameOf(HINTERNET handle) const
{
    const std::lock_guard lock(m_mutex);
    return NameLocked(handle);
}

void CHandleTable::ForgetNames()
{
    const std::lock_guard lock(m_mutex);
    m_counts.clear();
}

std::vector<std::string> CHandleTable::TakeFaults()
{
    const std::lock_guard lock(m_mutex);
    return std::exchange(m_faults, {});
}

std::vector<std::string> CHandleTable::TakeOpen()
{
    const std::lock_guard lock(m_mutex);
    std::vector<std::string> names;
    for (const auto& [handle, pObject] : std::exchange(m_objects, {}))
    {
        names.push_back(pObject->name);
    }
    return names;
}

std::string CHandleTable::NameLocked(HINTERNET handle) const
{
    const auto found = m_names.find(handle);
    return handle == nullptr ? "null" : found == m_names.end() ? "unknown" : found->second;
}

unsigned CHandleTable::ExchangeLocked() const
{
    const auto found = m_exchanges.find(GetCurrentThreadId());
    return found == m_exchanges.end() ? 0 : found->second;
}

void CHandleTable::FreeLocked(HINTERNET handle)
{
    m_objects.erase(handle);
    m_free.push_back(handle);
}

void CHandleTable::FaultLocked(const char* pszFunction, const std::string& what)
{
    m_faults.push_back(pszFunction + (" of exchange " + std::to_string(ExchangeLocked())) + ": " + what);
}

CHandleTable::CCall::CCall(CHandleTable& table, const char* pszFunction, HINTERNET handle)
    : m_table(table), m_handle(handle)
{
    const std::lock_guard lock(m_table.m_mutex);
    m_name = m_table.NameLocked(handle);
    const auto found = m_table.m_objects.find(handle);
    if (found == m_table.m_objects.end() || found->second->bClosed)
    {
        if (handle != nullptr)
        {
            m_table.FaultLocked(pszFunction, m_name + " is not open");
        }
        return;
    }
    m_pObject = found->second;
    ++m_pObject->callsInside;
    if (!m_pObject->bForAll && m_pObject->exchange != m_table.ExchangeLocked())
    {
        m_table.FaultLocked(pszFunction, m_name + " is another one's");
    }
}

CHandleTable::CCall::~CCall()
{
    const std::lock_guard lock(m_table.m_mutex);
    if (m_pObject != nullptr && --m_pObject->callsInside == 0 && m_pObject->bClosed)
    {
        m_table.FreeLocked(m_handle);
    }
}
