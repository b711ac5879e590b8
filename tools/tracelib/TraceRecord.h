// A record on its way from the thread that traces it to the thread that writes it, and the lists in between.
// A module may kill its threads wherever they are: so there is no lock that a dead thread could keep, and a
// record that a dead thread had begun is still found.
#pragma once

#include <windows.h>

#include <atomic>
#include <string>
#include <string_view>

#include "base/ScopedHandle.h"
#include "tracelib/TraceLine.h"

class CTraceRecord
{
public:
    CTraceRecord() = default;
    ~CTraceRecord() = default;
    CTraceRecord(const CTraceRecord&) = delete;
    CTraceRecord& operator=(const CTraceRecord&) = delete;

    // Begins a record of the calling thread. May throw std::bad_alloc, like Add and Finish.
    void Begin(unsigned long level);
    // What a record has beyond its first million bytes is counted, not kept.
    void Add(std::string_view piece);
    // Makes the line of it. pszRemark, in ASCII, comes behind the text.
    void Finish(const char* pszRemark = "");

    bool HasBegun() const { return m_head.time != 0; }
    bool IsFinished() const { return m_bFinished; }
    const std::string& Text() const { return m_strText; }
    // What it takes of the memory.
    size_t Size() const { return sizeof(*this) + m_strText.capacity(); }

    // The tracing thread: to be called before the record is handed over, if it is to be waited for. False
    // when there is nothing to wait with.
    bool PrepareWait();
    // True when the record has been written; it is the caller's again then. Otherwise the writing thread
    // gives it back.
    bool AwaitWritten(DWORD dwTimeoutMs);
    // The writing thread: it is done with the record. True when the record is its to give back.
    bool TellWritten();

    void Clear();

    SLIST_ENTRY m_entry = {};  // in the queue or among the free ones
    CTraceRecord* m_pNextOfAll = nullptr;

private:
    enum class Wait
    {
        NOBODY,
        SOMEBODY,
        WRITTEN
    };

    LineHead m_head = {};
    std::string m_strText;
    size_t m_nLeftOut = 0;
    bool m_bFinished = false;
    std::atomic<Wait> m_wait{Wait::NOBODY};
    CKernelHandle m_written;
};

// All records there are: free, in the making, and queued.
class CTraceRecords
{
public:
    CTraceRecords();
    ~CTraceRecords() = default;
    CTraceRecords(const CTraceRecords&) = delete;
    CTraceRecords& operator=(const CTraceRecords&) = delete;

    // An empty record, or null without memory.
    CTraceRecord* Take();
    void GiveBack(CTraceRecord* pRecord);

    void Queue(CTraceRecord* pRecord);
    // All that are queued, in their order, each with the next one as m_entry.Next; null when there are none.
    static CTraceRecord* Next(const CTraceRecord* pRecord);
    CTraceRecord* TakeQueue();

    // Calls visit with each record that was begun and is not finished. Only when no thread traces.
    template <typename Visit>
    void VisitUnfinished(Visit visit)
    {
        for (CTraceRecord* pRecord = m_pAll; pRecord != nullptr; pRecord = pRecord->m_pNextOfAll)
        {
            if (pRecord->HasBegun() && !pRecord->IsFinished())
            {
                visit(*pRecord);
            }
        }
    }

    // Only when no thread traces or writes.
    void DeleteAll();

private:
    SLIST_HEADER m_free;
    SLIST_HEADER m_queue;
    std::atomic<CTraceRecord*> m_pAll{nullptr};
};
