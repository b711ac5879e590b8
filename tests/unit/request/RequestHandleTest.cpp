#include "request/RequestHandle.h"

#include <gmock/gmock.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <vector>

#include "support/ImportPatch.h"
#include "support/Mutex.h"
#include "support/SideThread.h"

namespace
{

using testing::ElementsAre;
using testing::IsEmpty;

HINTERNET Handle(uintptr_t number)
{
    return reinterpret_cast<HINTERNET>(number);
}

class RequestHandleTest : public testing::Test
{
protected:
    RequestHandleTest()
    {
        s_closed.clear();
        s_cClosed = 0;
    }

    // What a call through the object gets to see.
    HINTERNET Seen() const
    {
        return m_handle.Use(HINTERNET{nullptr}, [](HINTERNET hRequest) { return hRequest; });
    }

    static BOOL WINAPI RecordClose(HINTERNET hRequest)
    {
        if (++s_cClosed <= kMostRecorded)
        {
            const std::lock_guard lock(s_mutex);
            s_closed.push_back(hRequest);
        }
        return TRUE;
    }

    static constexpr int kMostRecorded = 10;
    static inline CMutex s_mutex;
    static inline std::vector<HINTERNET> s_closed;
    static inline std::atomic<int> s_cClosed = 0;

    const CImportPatch m_close{GetModuleHandleW(nullptr), "InternetCloseHandle", RecordClose};
    CRequestHandle m_handle;
};

TEST_F(RequestHandleTest, MakesNoCallBeforeAHandleIsOpen)
{
    SetLastError(0);
    bool bCalled = false;
    EXPECT_EQ(m_handle.Use(7,
                           [&](HINTERNET)
                           {
                               bCalled = true;
                               return 8;
                           }),
              7);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INTERNET_OPERATION_CANCELLED});
    EXPECT_FALSE(bCalled);
    EXPECT_FALSE(m_handle.IsAbandoned());
}

TEST_F(RequestHandleTest, MakesCallsWithTheOpenHandle)
{
    EXPECT_TRUE(m_handle.Open(Handle(16)));
    EXPECT_EQ(m_handle.Use(7, [&](HINTERNET hRequest) { return hRequest == Handle(16) ? 8 : 9; }), 8);
    EXPECT_THAT(s_closed, IsEmpty());
}

BOOL WINAPI AddOne(HINTERNET hRequest, int* pnResult)
{
    *pnResult = static_cast<int>(reinterpret_cast<uintptr_t>(hRequest)) + 1;
    SetLastError(4321);
    return *pnResult > 17;
}

TEST_F(RequestHandleTest, CallsAFunctionAndSaysWhetherItSucceeded)
{
    struct Row
    {
        const char* label;
        uintptr_t handle;
        bool bExpected;
        int nExpected;
        DWORD dwError;
    };
    const Row rows[] = {
        {"no handle", 0, false, 0, ERROR_INTERNET_OPERATION_CANCELLED},
        {"function fails", 16, false, 17, 4321},
        {"function succeeds", 32, true, 33, 4321},
    };
    for (const Row& row : rows)
    {
        CRequestHandle handle;
        handle.Open(Handle(row.handle));
        int nResult = 0;
        SetLastError(0);
        EXPECT_EQ(handle.Call(AddOne, &nResult), row.bExpected) << row.label;
        EXPECT_EQ(GetLastError(), row.dwError) << row.label;
        EXPECT_EQ(nResult, row.nExpected) << row.label;
    }
}

TEST_F(RequestHandleTest, ClosesOnceAndOpensAgain)
{
    m_handle.Open(Handle(16));
    m_handle.Close();
    m_handle.Close();
    EXPECT_THAT(s_closed, ElementsAre(Handle(16)));
    EXPECT_EQ(Seen(), nullptr);
    EXPECT_TRUE(m_handle.Open(Handle(32)));
    EXPECT_EQ(Seen(), Handle(32));
}

TEST_F(RequestHandleTest, AbandoningClosesTheHandleForGood)
{
    m_handle.Open(Handle(16));
    m_handle.Abandon();
    EXPECT_TRUE(m_handle.IsAbandoned());
    EXPECT_THAT(s_closed, ElementsAre(Handle(16)));
    EXPECT_EQ(Seen(), nullptr);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INTERNET_OPERATION_CANCELLED});

    m_handle.Close();
    m_handle.Abandon();
    EXPECT_TRUE(m_handle.IsAbandoned()) << "nothing but a renewal leads out of it";
    EXPECT_THAT(s_closed, ElementsAre(Handle(16))) << "closed once";
}

TEST_F(RequestHandleTest, HandleThatComesTooLateIsClosedAtOnce)
{
    m_handle.Abandon();
    EXPECT_THAT(s_closed, IsEmpty());
    EXPECT_FALSE(m_handle.Open(Handle(16)));
    EXPECT_THAT(s_closed, ElementsAre(Handle(16)));
    EXPECT_EQ(Seen(), nullptr);
}

TEST_F(RequestHandleTest, RenewalAllowsTheNextExchange)
{
    m_handle.Open(Handle(16));
    m_handle.Abandon();
    m_handle.Renew();
    EXPECT_FALSE(m_handle.IsAbandoned());
    EXPECT_EQ(Seen(), nullptr);
    EXPECT_TRUE(m_handle.Open(Handle(32)));
    EXPECT_EQ(Seen(), Handle(32));
}

// What a finished exchange has left open is closed by the next one, behind its connection check.
TEST_F(RequestHandleTest, RenewalLeavesAnOpenHandleOpen)
{
    m_handle.Open(Handle(16));
    m_handle.Renew();
    EXPECT_EQ(Seen(), Handle(16));
    EXPECT_THAT(s_closed, IsEmpty());
}

TEST_F(RequestHandleTest, DestructionClosesAnOpenHandle)
{
    {
        CRequestHandle handle;
        handle.Open(Handle(16));
    }
    EXPECT_THAT(s_closed, ElementsAre(Handle(16)));
    {
        CRequestHandle handle;
        handle.Open(Handle(32));
        handle.Close();
    }
    EXPECT_THAT(s_closed, ElementsAre(Handle(16), Handle(32)));
}

// The owner closes under a call that is being made, which wakes it; there is no next one.
TEST_F(RequestHandleTest, IsAbandonedWhileACallIsBeingMade)
{
    m_handle.Open(Handle(16));
    const int nResult = m_handle.Use(7,
                                     [&](HINTERNET)
                                     {
                                         m_handle.Abandon();
                                         EXPECT_THAT(s_closed, ElementsAre(Handle(16)));
                                         return 8;
                                     });
    EXPECT_EQ(nResult, 8) << "the call that was being made gives its own result";
    EXPECT_EQ(Seen(), nullptr);
}

// Whichever thread is first, each handle is closed once, and none is open when the exchange is abandoned.
TEST_F(RequestHandleTest, BothThreadsTogetherCloseEachHandleOnce)
{
    constexpr int kRounds = 300;
    const std::unique_ptr<CRequestHandle[]> handles(new CRequestHandle[kRounds]);
    std::atomic<int> cOpened = 0;
    std::atomic<int> cBegun = 0;
    std::atomic<int> cAbandoned = 0;
    std::atomic<int> cEnded = 0;
    int cOpenedLater = 0;
    const CSideThread worker(
        [&]
        {
            for (int round = 0; round < kRounds; ++round)
            {
                CRequestHandle& handle = handles[static_cast<size_t>(round)];
                bool bAbandoned = false;
                while (++cOpened, handle.Open(Handle(16)) && !bAbandoned)
                {
                    cBegun = round + 1;
                    handle.Close();
                    bAbandoned = cAbandoned > round;
                }
                cOpenedLater += handle.IsAbandoned() ? 0 : 1;
                cEnded = round + 1;
            }
        });
    for (int round = 0; round < kRounds; ++round)
    {
        while (cBegun <= round)
        {
            SwitchToThread();
        }
        handles[static_cast<size_t>(round)].Abandon();
        cAbandoned = round + 1;
        while (cEnded <= round)
        {
            SwitchToThread();
        }
    }
    worker.Join();
    EXPECT_EQ(s_cClosed, cOpened);
    EXPECT_EQ(cOpenedLater, 0);
}

}  // namespace
