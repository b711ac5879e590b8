#include "tracelib/TraceWriter.h"

#include <new>

#include "tracelib/TraceSettings.h"

namespace
{

constexpr DWORD kPatienceMs = 250;
constexpr ULONGLONG kSlowMs = 50;
constexpr DWORD kParkMs = 2000;
constexpr DWORD kBeginMs = 100;
constexpr DWORD kKillMs = 1000;
constexpr ULONGLONG kLeaveMs = 500;
constexpr size_t kMaxQueued = 4 * 1024 * 1024;
constexpr size_t kBatch = 64 * 1024;
constexpr size_t kStackBytes = 256 * 1024;
constexpr DWORD kMaxPath = 0x8000;

std::string HostPath()
{
    std::wstring path(kMaxPath, L'\0');
    path.resize(GetModuleFileNameW(nullptr, path.data(), kMaxPath));
    return ToUtf8(path);
}

std::string Note(const std::string& text)
{
    return MakeLine({TimeNow(), kLevelNote, GetCurrentProcessId(), GetCurrentThreadId()}, text);
}

}  // namespace

CTraceWriter::CTraceWriter(HMODULE hLibrary)
    : m_hLibrary(hLibrary),
      m_dwSlot(TlsAlloc()),
      m_work(CreateEventW(nullptr, FALSE, FALSE, nullptr)),
      m_parked(CreateEventW(nullptr, TRUE, FALSE, nullptr))
{
    m_bIdle = !m_work || !m_parked;
}

void CTraceWriter::Take(unsigned long level, const char* piece)
{
    if (m_bIdle || piece == nullptr || *piece == '\0')
    {
        return;
    }
    ++m_inside;
    // Asked again: Stop waits for those that it sees inside.
    if (!m_bIdle)
    {
        Start();
        TakePiece(level, piece);
    }
    --m_inside;
}

void CTraceWriter::Start()
{
    if (m_bStarted || m_bStarted.exchange(true))
    {
        return;
    }
    *m_thread.Put() =
        CreateThread(nullptr, kStackBytes, ThreadProc, this, STACK_SIZE_PARAM_IS_A_RESERVATION, nullptr);
    if (!m_thread)
    {
        m_bIdle = true;
    }
}

void CTraceWriter::TakePiece(unsigned long level, std::string_view piece)
try
{
    CTraceRecord* const pRecord = FinishedRecord(level, piece);
    if (pRecord != nullptr)
    {
        QueueAndWait(pRecord);
    }
}
catch (const std::bad_alloc&)
{
    // The rest of the record, if there is more of it, counts as another.
    auto* const pRecord = static_cast<CTraceRecord*>(TlsGetValue(m_dwSlot));
    TlsSetValue(m_dwSlot, nullptr);
    if (pRecord != nullptr)
    {
        m_records.GiveBack(pRecord);
    }
    ++m_lost;
}

// The record that the piece has completed, or null: more of it comes, or it is lost.
CTraceRecord* CTraceWriter::FinishedRecord(unsigned long level, std::string_view piece)
{
    auto* pRecord = static_cast<CTraceRecord*>(TlsGetValue(m_dwSlot));
    if (pRecord == nullptr)
    {
        pRecord = m_records.Take();
        if (pRecord == nullptr)
        {
            ++m_lost;
            return nullptr;
        }
        pRecord->Begin(level);
    }
    // Kept there meanwhile, so that it is found when there is no memory. Without a slot pieces stay apart.
    const bool bKept = TlsSetValue(m_dwSlot, pRecord) != FALSE;
    pRecord->Add(piece);
    if (bKept && !IsLastPiece(piece))
    {
        return nullptr;
    }
    pRecord->Finish();
    TlsSetValue(m_dwSlot, nullptr);
    return pRecord;
}

void CTraceWriter::QueueAndWait(CTraceRecord* pRecord)
{
    if (m_queued != 0 && m_queued + pRecord->Size() > kMaxQueued)
    {
        ++m_lost;
        m_records.GiveBack(pRecord);
        return;
    }
    m_queued += pRecord->Size();
    if (m_bAlone)
    {
        m_records.Queue(pRecord);
        WriteQueue();
        return;
    }
    const bool bWaits = !m_bSlow && pRecord->PrepareWait();
    m_records.Queue(pRecord);
    SetEvent(m_work.Get());
    if (!bWaits)
    {
        return;
    }
    if (pRecord->AwaitWritten(kPatienceMs))
    {
        m_records.GiveBack(pRecord);
    }
    else
    {
        m_bSlow = true;
    }
}

// Under the loader's lock no thread can end, and nobody could tell when one has left the library's code. So
// it stops here, where it holds nothing, and Stop ends it: it waits for its own end.
DWORD WINAPI CTraceWriter::ThreadProc(void* pThis)
{
    auto* const pWriter = static_cast<CTraceWriter*>(pThis);
    pWriter->Run();
    SignalObjectAndWait(pWriter->m_parked.Get(), GetCurrentThread(), INFINITE, FALSE);
    return 0;
}

void CTraceWriter::Run()
{
    m_bRuns = true;
    OpenOutput();
    bool bStop = false;
    do
    {
        WaitForSingleObject(m_work.Get(), INFINITE);
        bStop = m_bStop;
        WriteQueue();
    } while (!bStop);
}

void CTraceWriter::OpenOutput()
try
{
    const TraceSettings settings = ReadTraceSettings(m_hLibrary);
    m_pOutput = std::make_unique<CTraceOutput>(settings);
    if (!m_pOutput->IsWanted())
    {
        m_bIdle = true;
        TellDebugger("qnztraceX64: no trace: neither QNZTRACE_FILE nor qnztraceX64.ini names a file\n");
    }
    AddNote("trace begins: " + HostPath());
    for (const std::string& complaint : settings.complaints)
    {
        AddNote(complaint);
        TellDebugger("qnztraceX64: " + complaint + "\n");
    }
}
catch (const std::bad_alloc&)
{
    m_bIdle = true;
}

void CTraceWriter::AddNote(const std::string& text)
{
    m_strNotes += Note(text);
}

void CTraceWriter::WriteQueue()
{
    CTraceRecord* pRecord = m_records.TakeQueue();
    while (pRecord != nullptr)
    {
        pRecord = WriteSome(pRecord);
        if (pRecord == nullptr)
        {
            pRecord = m_records.TakeQueue();
        }
    }
}

// Writes the first records of a list, and tells those who wait for them. Gives the rest of the list.
CTraceRecord* CTraceWriter::WriteSome(CTraceRecord* pFirst)
{
    CTraceRecord* pRest = pFirst;
    unsigned long count = 0;
    try
    {
        std::string lines;
        for (; pRest != nullptr && lines.size() < kBatch; pRest = CTraceRecords::Next(pRest))
        {
            ++count;
            lines += pRest->Text();
        }
        WriteLines(lines, count);
    }
    catch (const std::bad_alloc&)
    {
        pRest = CTraceRecords::Next(pFirst);
        ++m_lost;
    }
    while (pFirst != pRest)
    {
        CTraceRecord* const pRecord = pFirst;
        pFirst = CTraceRecords::Next(pRecord);
        m_queued -= pRecord->Size();
        if (pRecord->TellWritten())
        {
            m_records.GiveBack(pRecord);
        }
    }
    return pRest;
}

void CTraceWriter::WriteLines(const std::string& lines, unsigned long count)
{
    const unsigned long lost = m_lost;
    std::string text = m_strNotes;
    if (lost != 0)
    {
        text += Note(std::to_string(lost) + " records are missing here");
    }
    text += lines;
    const ULONGLONG begin = GetTickCount64();
    m_bWriting = true;
    const bool bWritten = m_pOutput != nullptr && m_pOutput->Write(text);
    m_bWriting = false;
    m_bSlow = GetTickCount64() - begin > kSlowMs;
    if (bWritten)
    {
        m_strNotes.clear();
        m_lost -= lost;
    }
    else
    {
        m_lost += count;
    }
}

void CTraceWriter::Stop()
{
    m_bIdle = true;
    // A thread that was killed inside never leaves.
    for (const ULONGLONG end = GetTickCount64() + kLeaveMs; m_inside != 0 && GetTickCount64() < end;)
    {
        Sleep(1);
    }
    if (EndThread())
    {
        if (m_bStarted && !m_bRuns)
        {
            OpenOutput();
            WriteQueue();
        }
        WriteLast();
        m_pOutput.reset();
    }
    // Closing a file that is stuck might get stuck, too.
    static_cast<void>(m_pOutput.release());
    m_records.DeleteAll();
    if (m_dwSlot != TLS_OUT_OF_INDEXES)
    {
        TlsFree(m_dwSlot);
    }
}

// True when the thread is nowhere, and what it leaves undone can be done here.
bool CTraceWriter::EndThread()
{
    if (!m_thread)
    {
        return true;
    }
    m_bStop = true;
    SetEvent(m_work.Get());
    bool bParked = WaitForSingleObject(m_parked.Get(), kBeginMs) == WAIT_OBJECT_0;
    // One that the loader's lock has kept from beginning never comes here.
    const bool bBegan = m_bRuns;
    if (!bParked && bBegan)
    {
        bParked = WaitForSingleObject(m_parked.Get(), kParkMs) == WAIT_OBJECT_0;
    }
    TerminateThread(m_thread.Get(), 0);
    return WaitForSingleObject(m_thread.Get(), kKillMs) == WAIT_OBJECT_0 && (bParked || !bBegan);
}

void CTraceWriter::TakeOver()
{
    m_bAlone = true;
    const bool bHangs = m_bSlow && m_bWriting;
    if (bHangs || m_pOutput == nullptr)
    {
        m_bIdle = true;
        return;
    }
    m_pOutput->Unlock();
    WriteQueue();
    WriteLast();
}

// What killed threads had begun, and the last note.
void CTraceWriter::WriteLast()
try
{
    if (m_pOutput == nullptr || !m_pOutput->IsWanted())
    {
        return;
    }
    std::string lines;
    unsigned long count = 0;
    m_records.VisitUnfinished(
        [&](CTraceRecord& record)
        {
            record.Finish(" (cut off)");
            lines += record.Text();
            ++count;
        });
    WriteLines(lines + Note("trace ends"), count);
}
catch (const std::bad_alloc&)
{
    // The trace ends without its last lines.
}
