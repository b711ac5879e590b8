#include "support/HandleTable.h"

#include <gmock/gmock.h>
#include <gtest/gtest-spi.h>

#include <functional>

#include "support/SideThread.h"

namespace
{

using testing::ElementsAre;
using testing::IsEmpty;

struct Connection : CHandleObject
{
    Connection() : CHandleObject("connect") {}
};

struct Request : CHandleObject
{
    Request() : CHandleObject("request") {}
};

struct Session : CHandleObject
{
    Session() : CHandleObject("session", true) {}
};

class HandleTableTest : public testing::Test
{
protected:
    template <typename Object = Request>
    HINTERNET Open()
    {
        return m_table.Open(std::make_shared<Object>());
    }

    // Whether a call with the handle would reach an object of that kind.
    template <typename Object = Request>
    bool Reaches(HINTERNET handle)
    {
        const CHandleTable::CCall call(m_table, "Call", handle);
        return call.Reach<Object>() != nullptr;
    }

    // Runs it as an exchange of a thread of its own.
    void AsExchange(const std::function<void()>& run)
    {
        const CSideThread thread(
            [&]
            {
                m_table.Begin();
                run();
            });
    }

    CHandleTable m_table;
};

TEST_F(HandleTableTest, GivesTheNumberThatWasFreedLastToTheNextOpeningOfAnyKind)
{
    const HINTERNET hFirst = Open<Connection>();
    const HINTERNET hSecond = Open();
    EXPECT_NE(hFirst, hSecond);
    m_table.Close(hFirst);
    m_table.Close(hSecond);
    EXPECT_EQ(Open<Connection>(), hSecond);
    EXPECT_EQ(Open(), hFirst);
    EXPECT_EQ(m_table.NameOf(hSecond), "connect2");
    EXPECT_EQ(m_table.NameOf(hFirst), "request2");
    m_table.Close(hFirst);
    m_table.Close(hSecond);
    EXPECT_THAT(m_table.TakeFaults(), IsEmpty());
}

TEST_F(HandleTableTest, HandleThatACallIsInsideOfKeepsItsNumber)
{
    const HINTERNET hFirst = Open();
    {
        const CHandleTable::CCall call(m_table, "Call", hFirst);
        EXPECT_TRUE(m_table.Close(hFirst));
        EXPECT_NE(call.Reach<Request>(), nullptr) << "the call goes on";
        EXPECT_FALSE(m_table.Close(hFirst));
        EXPECT_THAT(m_table.TakeFaults(),
                    ElementsAre("InternetCloseHandle of exchange 0: request1 is not open"));
        const HINTERNET hSecond = Open();
        EXPECT_NE(hSecond, hFirst);
        m_table.Close(hSecond);
        EXPECT_FALSE(Reaches(hFirst));
        EXPECT_THAT(m_table.TakeFaults(), ElementsAre("Call of exchange 0: request1 is not open"));
    }
    EXPECT_EQ(Open(), hFirst);
    m_table.Close(hFirst);
}

TEST_F(HandleTableTest, ClosedHandleReachesNothingAndIsAFault)
{
    const HINTERNET handle = Open();
    EXPECT_TRUE(Reaches(handle));
    m_table.Close(handle);
    EXPECT_FALSE(Reaches(handle));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_HANDLE});
    EXPECT_FALSE(m_table.Close(handle));
    EXPECT_FALSE(Reaches(reinterpret_cast<HINTERNET>(INT_PTR{0x777})));
    EXPECT_THAT(m_table.TakeFaults(), ElementsAre("Call of exchange 0: request1 is not open",
                                                  "InternetCloseHandle of exchange 0: request1 is not open",
                                                  "Call of exchange 0: unknown is not open"));
}

TEST_F(HandleTableTest, NoHandleReachesNothingAndIsNoFault)
{
    EXPECT_FALSE(Reaches(nullptr));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_HANDLE});
    EXPECT_EQ(m_table.NameOf(nullptr), "null");
    EXPECT_THAT(m_table.TakeFaults(), IsEmpty());
}

TEST_F(HandleTableTest, NumberReachesWhoeverHasItNowAndIsAFault)
{
    AsExchange(
        [&]
        {
            const HINTERNET hOld = Open();
            m_table.Close(hOld);
            AsExchange(
                [&]
                {
                    EXPECT_EQ(Open(), hOld);
                    EXPECT_TRUE(Reaches(hOld));
                });
            EXPECT_TRUE(Reaches(hOld));
            EXPECT_FALSE(Reaches<Connection>(hOld));
            EXPECT_EQ(GetLastError(), DWORD{ERROR_INTERNET_INCORRECT_HANDLE_TYPE});
            EXPECT_TRUE(m_table.Close(hOld));
        });
    EXPECT_THAT(m_table.TakeFaults(),
                ElementsAre("Call of exchange 1: request2 is another one's",
                            "Call of exchange 1: request2 is another one's",
                            "InternetCloseHandle of exchange 1: request2 is another one's"));
}

TEST_F(HandleTableTest, OwnersThreadMayOnlyCloseWhatAnExchangeHasOpened)
{
    HINTERNET handle = nullptr;
    AsExchange([&] { handle = Open(); });
    EXPECT_TRUE(Reaches(handle));
    EXPECT_THAT(m_table.TakeFaults(), ElementsAre("Call of exchange 0: request1 is another one's"));
    EXPECT_TRUE(m_table.Close(handle));
    EXPECT_THAT(m_table.TakeFaults(), IsEmpty());
}

TEST_F(HandleTableTest, LaterExchangeMayOnlyCloseWhatAnEarlierOneHasOpened)
{
    HINTERNET handle = nullptr;
    AsExchange([&] { handle = Open(); });
    AsExchange(
        [&]
        {
            EXPECT_TRUE(Reaches(handle));
            EXPECT_TRUE(m_table.Close(handle));
        });
    EXPECT_THAT(m_table.TakeFaults(), ElementsAre("Call of exchange 2: request1 is another one's"));
}

TEST_F(HandleTableTest, SessionIsForAll)
{
    const HINTERNET handle = Open<Session>();
    AsExchange([&] { EXPECT_TRUE(Reaches<Session>(handle)); });
    m_table.Close(handle);
    EXPECT_THAT(m_table.TakeFaults(), IsEmpty());
}

TEST(HandleTableEndTest, FailsTheTestForAFaultAndForAHandleThatIsOpen)
{
    EXPECT_NONFATAL_FAILURE(
        { CHandleTable().Close(reinterpret_cast<HINTERNET>(INT_PTR{4})); },
        "InternetCloseHandle of exchange 0: unknown is not open");
    EXPECT_NONFATAL_FAILURE({ CHandleTable().Open(std::make_shared<Request>()); }, "request1 was left open");
}

}  // namespace
