// What a reader on another thread can see while the counter is begun anew: each store is a moment of its own.
#include <gmock/gmock.h>

#include <new>
#include <vector>

#include "base/TimeCounter.h"
#include "support/ImportPatch.h"

namespace
{

using testing::Each;
using testing::SizeIs;

DWORD g_dwTick = 1000;

DWORD WINAPI ScriptedGetTickCount()
{
    return g_dwTick;
}

// A counter in a page of its own. While it is watched the page may only be read: each store is let through
// alone, and then the elapsed time is read.
class CWatchedCounter
{
public:
    CWatchedCounter()
        : m_pPage(VirtualAlloc(nullptr, kPage, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE)),
          m_pCounter(new(m_pPage) CTimeCounter),
          m_pHandler(AddVectoredExceptionHandler(1, OnException))
    {
        s_pThis = this;
        m_seen.reserve(16);
    }
    ~CWatchedCounter()
    {
        RemoveVectoredExceptionHandler(m_pHandler);
        Protect(PAGE_READWRITE);
        m_pCounter->~CTimeCounter();
        VirtualFree(m_pPage, 0, MEM_RELEASE);
    }
    CWatchedCounter(const CWatchedCounter&) = delete;
    CWatchedCounter& operator=(const CWatchedCounter&) = delete;

    CTimeCounter* operator->() const { return m_pCounter; }

    void Watch() { Protect(PAGE_READONLY); }
    // The elapsed time after each store.
    const std::vector<DWORD>& Seen() const { return m_seen; }

private:
    void Protect(DWORD dwProtection) const
    {
        DWORD dwOld = 0;
        VirtualProtect(m_pPage, kPage, dwProtection, &dwOld);
    }

    static LONG CALLBACK OnException(EXCEPTION_POINTERS* pPointers)
    {
        constexpr DWORD kTrapAfterOneInstruction = 0x100;
        const EXCEPTION_RECORD& record = *pPointers->ExceptionRecord;
        if (record.ExceptionCode == EXCEPTION_ACCESS_VIOLATION)
        {
            if (record.ExceptionInformation[1] - reinterpret_cast<ULONG_PTR>(s_pThis->m_pPage) >= kPage)
            {
                return EXCEPTION_CONTINUE_SEARCH;
            }
            s_pThis->Protect(PAGE_READWRITE);
            pPointers->ContextRecord->EFlags |= kTrapAfterOneInstruction;
            return EXCEPTION_CONTINUE_EXECUTION;
        }
        if (record.ExceptionCode == EXCEPTION_SINGLE_STEP)
        {
            s_pThis->m_seen.push_back(s_pThis->m_pCounter->GetElapsed());
            s_pThis->Protect(PAGE_READONLY);
            return EXCEPTION_CONTINUE_EXECUTION;
        }
        return EXCEPTION_CONTINUE_SEARCH;
    }

    static constexpr size_t kPage = 4096;
    static inline CWatchedCounter* s_pThis = nullptr;

    void* const m_pPage;
    CTimeCounter* const m_pCounter;
    void* const m_pHandler;
    std::vector<DWORD> m_seen;
};

class TimeCounterOrderTest : public testing::Test
{
protected:
    // A counter that has been stopped after four seconds, two seconds ago.
    TimeCounterOrderTest()
    {
        g_dwTick = 1000;
        m_counter->Start();
        g_dwTick = 5000;
        m_counter->Stop();
        g_dwTick = 7000;
        m_counter.Watch();
    }

    CImportPatch m_patch{GetModuleHandleW(nullptr), "GetTickCount", ScriptedGetTickCount};
    CWatchedCounter m_counter;
};

TEST_F(TimeCounterOrderTest, RestartNeverShowsTheOldTime)
{
    m_counter->Restart();
    EXPECT_THAT(m_counter.Seen(), SizeIs(2));
    EXPECT_THAT(m_counter.Seen(), Each(0u));
}

TEST_F(TimeCounterOrderTest, StartNeverShowsTheOldTime)
{
    m_counter->Start();
    EXPECT_THAT(m_counter.Seen(), SizeIs(2));
    EXPECT_THAT(m_counter.Seen(), Each(0u));
}

}  // namespace
