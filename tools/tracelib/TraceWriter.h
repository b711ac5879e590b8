// Takes records from any thread and writes them on one of its own, which the first record starts. The tracing
// thread waits until its record is written, so that a crash loses nothing; but for a quarter of a second at
// most, and not at all while the file is slow. What comes then waits in memory, up to a bound; what comes
// beyond that is counted and left out.
//
// The object lives as long as the library. Nothing here throws.
#pragma once

#include <windows.h>

#include <atomic>
#include <memory>
#include <string>
#include <string_view>

#include "base/ScopedHandle.h"
#include "tracelib/TraceOutput.h"
#include "tracelib/TraceRecord.h"

class CTraceWriter
{
public:
    explicit CTraceWriter(HMODULE hLibrary);
    // Nothing: Stop comes before.
    ~CTraceWriter() = default;
    CTraceWriter(const CTraceWriter&) = delete;
    CTraceWriter& operator=(const CTraceWriter&) = delete;

    // One piece of a record of the calling thread, from any thread. May change the last error.
    void Take(unsigned long level, const char* piece);

    // The library is being unloaded: writes what is left, ends the thread, and gives everything back. Waits
    // for a slow file for two seconds at most. Works under the loader's lock.
    void Stop();
    // The process ends, and its other threads are gone: writes what is left. Records may still come, and are
    // written at once.
    void TakeOver();

private:
    void Start();
    void TakePiece(unsigned long level, std::string_view piece);
    CTraceRecord* FinishedRecord(unsigned long level, std::string_view piece);
    void QueueAndWait(CTraceRecord* pRecord);
    static DWORD WINAPI ThreadProc(void* pThis);
    void Run();
    void OpenOutput();
    void AddNote(const std::string& text);
    void WriteQueue();
    void WriteLines(const std::string& lines, unsigned long count);
    CTraceRecord* WriteSome(CTraceRecord* pFirst);
    void WriteLast();
    bool EndThread();

    const HMODULE m_hLibrary;
    const DWORD m_dwSlot;  // of each thread: the record that it is in the middle of
    CTraceRecords m_records;
    const CKernelHandle m_work;    // set when there is something to do
    const CKernelHandle m_parked;  // set when the thread will do nothing any more
    CKernelHandle m_thread;
    std::atomic<bool> m_bStarted{false};
    std::atomic<bool> m_bRuns{false};      // the thread has come as far as this library
    std::atomic<bool> m_bIdle{false};      // no record is taken: nobody wants them, or the end has come
    std::atomic<bool> m_bStop{false};      // the thread is to end
    std::atomic<bool> m_bAlone{false};     // no other thread is left in the process
    std::atomic<bool> m_bSlow{false};      // nobody is to wait
    std::atomic<bool> m_bWriting{false};   // the thread is within the output
    std::atomic<int> m_inside{0};          // threads within Take
    std::atomic<size_t> m_queued{0};       // bytes
    std::atomic<unsigned long> m_lost{0};  // records
    // The writing thread's alone:
    std::unique_ptr<CTraceOutput> m_pOutput;
    std::string m_strNotes;  // lines of the library's own that are not written yet
};
