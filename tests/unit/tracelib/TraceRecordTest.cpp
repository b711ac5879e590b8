// A record between the thread that traces it and the one that writes it.
#include "tracelib/TraceRecord.h"

#include <gtest/gtest.h>

#include <vector>

#include "support/Gate.h"
#include "support/SideThread.h"

namespace
{

constexpr DWORD kAtOnce = 0;
constexpr DWORD kLong = 20000;

std::string TextOf(CTraceRecord& record, const std::vector<std::string>& pieces, const char* pszRemark = "")
{
    record.Begin(2);
    for (const std::string& piece : pieces)
    {
        record.Add(piece);
    }
    record.Finish(pszRemark);
    std::string line = record.Text();
    const std::string head = " " + std::to_string(GetCurrentThreadId()) + " ";
    return line.substr(line.find(head) + head.size());
}

TEST(TraceRecordTest, JoinsItsPieces)
{
    CTraceRecord record;
    EXPECT_EQ(TextOf(record, {std::string(2047, 'a'), std::string(2047, 'b'), "c,\n"}),
              std::string(2047, 'a') + std::string(2047, 'b') + "c,\n");
}

TEST(TraceRecordTest, CountsWhatIsBeyondAMillionBytes)
{
    CTraceRecord record;
    const std::string half(512 * 1024, 'a');
    EXPECT_EQ(TextOf(record, {half, half, "12345", "67"}), half + half + " (7 bytes more)\n");
}

TEST(TraceRecordTest, SaysThatItIsCutOff)
{
    CTraceRecord record;
    EXPECT_EQ(TextOf(record, {" some"}, " (cut off)"), "some (cut off)\n");
}

TEST(TraceRecordTest, IsEmptyAgainAfterClear)
{
    CTraceRecord record;
    TextOf(record, {std::string(1024 * 1024 + 9, 'a')});
    record.Clear();
    EXPECT_FALSE(record.HasBegun());
    EXPECT_FALSE(record.IsFinished());
    EXPECT_LT(record.Size(), 8192u) << "a large record's memory is not kept";
    EXPECT_EQ(TextOf(record, {" b,\n"}), "b,\n");
}

TEST(TraceRecordTest, BelongsToTheWriterWhenNobodyWaits)
{
    CTraceRecord record;
    EXPECT_TRUE(record.TellWritten());
}

TEST(TraceRecordTest, BelongsToTheOneWhoWaits)
{
    CTraceRecord record;
    ASSERT_TRUE(record.PrepareWait());
    CSideThread writer([&] { EXPECT_FALSE(record.TellWritten()); });
    EXPECT_TRUE(record.AwaitWritten(kLong));
}

TEST(TraceRecordTest, BelongsToTheWriterWhenTheWaitIsOver)
{
    CTraceRecord record;
    ASSERT_TRUE(record.PrepareWait());
    EXPECT_FALSE(record.AwaitWritten(kAtOnce));
    EXPECT_TRUE(record.TellWritten());
    // And nothing of it is left for the next wait.
    record.Clear();
    ASSERT_TRUE(record.PrepareWait());
    EXPECT_FALSE(record.AwaitWritten(kAtOnce));
}

class TraceRecordsTest : public testing::Test
{
protected:
    ~TraceRecordsTest() override { m_records.DeleteAll(); }

    CTraceRecords m_records;
};

TEST_F(TraceRecordsTest, QueueKeepsTheOrder)
{
    CTraceRecord* records[] = {m_records.Take(), m_records.Take(), m_records.Take()};
    for (CTraceRecord* const pRecord : records)
    {
        m_records.Queue(pRecord);
    }
    CTraceRecord* pRecord = m_records.TakeQueue();
    for (CTraceRecord* const pExpected : records)
    {
        ASSERT_EQ(pRecord, pExpected);
        pRecord = CTraceRecords::Next(pRecord);
    }
    EXPECT_EQ(pRecord, nullptr);
    EXPECT_EQ(m_records.TakeQueue(), nullptr);
}

TEST_F(TraceRecordsTest, RecordsAreUsedAgain)
{
    CTraceRecord* const pRecord = m_records.Take();
    TextOf(*pRecord, {"old"});
    m_records.GiveBack(pRecord);
    EXPECT_EQ(m_records.Take(), pRecord);
    EXPECT_EQ(pRecord->Text(), "");
}

TEST_F(TraceRecordsTest, UnfinishedOnesAreFound)
{
    m_records.Take();
    CTraceRecord* const pBegun = m_records.Take();
    pBegun->Begin(2);
    TextOf(*m_records.Take(), {"finished"});
    std::vector<const CTraceRecord*> found;
    m_records.VisitUnfinished([&](const CTraceRecord& record) { found.push_back(&record); });
    EXPECT_EQ(found, std::vector<const CTraceRecord*>{pBegun});
}

TEST_F(TraceRecordsTest, NoneIsLostBetweenThreads)
{
    constexpr int kThreads = 4;
    constexpr int kEach = 2000;
    std::atomic<int> running{kThreads};
    const auto trace = [&]
    {
        for (int count = 0; count < kEach; ++count)
        {
            CTraceRecord* const pRecord = m_records.Take();
            pRecord->Begin(2);
            m_records.Queue(pRecord);
        }
        --running;
    };
    CSideThread threads[kThreads] = {CSideThread(trace), CSideThread(trace), CSideThread(trace),
                                     CSideThread(trace)};
    int seen = 0;
    for (bool bLast = false; !bLast;)
    {
        bLast = running == 0;
        for (CTraceRecord* pRecord = m_records.TakeQueue(); pRecord != nullptr;)
        {
            CTraceRecord* const pNext = CTraceRecords::Next(pRecord);
            m_records.GiveBack(pRecord);
            pRecord = pNext;
            ++seen;
        }
    }
    EXPECT_EQ(seen, kThreads * kEach);
}

}  // namespace
