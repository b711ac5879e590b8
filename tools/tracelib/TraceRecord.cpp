#include "tracelib/TraceRecord.h"

#include <algorithm>
#include <cstddef>
#include <new>

namespace
{

constexpr size_t kMaxRecord = 1024 * 1024;
constexpr size_t kKeptCapacity = 4096;

CTraceRecord* RecordOf(SLIST_ENTRY* pEntry)
{
    return pEntry == nullptr ? nullptr : CONTAINING_RECORD(pEntry, CTraceRecord, m_entry);
}

}  // namespace

void CTraceRecord::Begin(unsigned long level)
{
    m_head = {TimeNow(), level, GetCurrentProcessId(), GetCurrentThreadId()};
}

void CTraceRecord::Add(std::string_view piece)
{
    const size_t taken = std::min(piece.size(), kMaxRecord - m_strText.size());
    m_strText.append(piece.substr(0, taken));
    m_nLeftOut += piece.size() - taken;
}

void CTraceRecord::Finish(const char* pszRemark)
{
    std::string text = LineText(m_strText);
    if (m_nLeftOut != 0)
    {
        text += " (" + std::to_string(m_nLeftOut) + " bytes more)";
    }
    m_strText = MakeLine(m_head, text.append(pszRemark));
    m_bFinished = true;
}

bool CTraceRecord::PrepareWait()
{
    if (!m_written)
    {
        *m_written.Put() = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    }
    if (m_written)
    {
        m_wait = Wait::SOMEBODY;
    }
    return static_cast<bool>(m_written);
}

bool CTraceRecord::AwaitWritten(DWORD dwTimeoutMs)
{
    if (WaitForSingleObject(m_written.Get(), dwTimeoutMs) == WAIT_OBJECT_0)
    {
        return true;
    }
    if (m_wait.exchange(Wait::NOBODY) == Wait::SOMEBODY)
    {
        return false;
    }
    // The other side was about to tell.
    WaitForSingleObject(m_written.Get(), INFINITE);
    return true;
}

bool CTraceRecord::TellWritten()
{
    if (m_wait.exchange(Wait::WRITTEN) == Wait::NOBODY)
    {
        return true;
    }
    SetEvent(m_written.Get());
    return false;
}

void CTraceRecord::Clear()
{
    m_head = {};
    m_strText.clear();
    if (m_strText.capacity() > kKeptCapacity)
    {
        std::string().swap(m_strText);
    }
    m_nLeftOut = 0;
    m_bFinished = false;
    m_wait = Wait::NOBODY;
}

CTraceRecords::CTraceRecords()
{
    InitializeSListHead(&m_free);
    InitializeSListHead(&m_queue);
}

CTraceRecord* CTraceRecords::Take()
{
    CTraceRecord* pRecord = RecordOf(InterlockedPopEntrySList(&m_free));
    if (pRecord == nullptr)
    {
        pRecord = new (std::nothrow) CTraceRecord;
        if (pRecord != nullptr)
        {
            pRecord->m_pNextOfAll = m_pAll;
            while (!m_pAll.compare_exchange_weak(pRecord->m_pNextOfAll, pRecord))
            {
            }
        }
    }
    return pRecord;
}

void CTraceRecords::GiveBack(CTraceRecord* pRecord)
{
    pRecord->Clear();
    InterlockedPushEntrySList(&m_free, &pRecord->m_entry);
}

void CTraceRecords::Queue(CTraceRecord* pRecord)
{
    InterlockedPushEntrySList(&m_queue, &pRecord->m_entry);
}

CTraceRecord* CTraceRecords::Next(const CTraceRecord* pRecord)
{
    return RecordOf(pRecord->m_entry.Next);
}

CTraceRecord* CTraceRecords::TakeQueue()
{
    SLIST_ENTRY* pLast = InterlockedFlushSList(&m_queue);
    SLIST_ENTRY* pFirst = nullptr;
    while (pLast != nullptr)
    {
        SLIST_ENTRY* const pBefore = pLast->Next;
        pLast->Next = pFirst;
        pFirst = pLast;
        pLast = pBefore;
    }
    return RecordOf(pFirst);
}

void CTraceRecords::DeleteAll()
{
    InterlockedFlushSList(&m_free);
    InterlockedFlushSList(&m_queue);
    CTraceRecord* pRecord = m_pAll.exchange(nullptr);
    while (pRecord != nullptr)
    {
        CTraceRecord* const pNext = pRecord->m_pNextOfAll;
        delete pRecord;
        pRecord = pNext;
    }
}
