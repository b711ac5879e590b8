#include <gmock/gmock.h>

#include <cstdint>
#include <string>

#include "support/guarded_heap/GuardedHeap.h"
#include "trace/Trace.h"
#include "unit/trace/TraceRecorder.h"

namespace
{

using testing::IsEmpty;
using testing::SizeIs;

constexpr const TraceVarPair* kEnd = nullptr;

class TraceVarsTest : public testing::Test
{
protected:
    CTraceRecorder m_recorder;
};

TEST_F(TraceVarsTest, LevelsOfTheModule)
{
    EXPECT_EQ(kTraceProgress, 2u);
    EXPECT_EQ(kTraceError, 8u);
}

TEST_F(TraceVarsTest, HandsTheLevelOnAndTwoZeros)
{
    for (const unsigned long level : {0ul, 2ul, 8ul, 0xFFFFFFFFul})
    {
        m_recorder.Forget();
        TraceVars(level, "m", kEnd);
        ASSERT_THAT(m_recorder.Records(), SizeIs(1));
        EXPECT_EQ(m_recorder.Records()[0].level, level);
        EXPECT_EQ(m_recorder.Records()[0].second, 0u);
        EXPECT_EQ(m_recorder.Records()[0].third, 0u);
    }
}

TEST_F(TraceVarsTest, WritesABlankBehindAMessageEvenAnEmptyOne)
{
    TraceVars(2, "message", kEnd);
    EXPECT_EQ(m_recorder.Text(), "message \n");
    m_recorder.Forget();
    TraceVars(2, "", kEnd);
    EXPECT_EQ(m_recorder.Text(), " \n");
    m_recorder.Forget();
    TraceVars(2, nullptr, kEnd);
    EXPECT_EQ(m_recorder.Text(), "\n");
}

TEST_F(TraceVarsTest, WritesItemsInOrder)
{
    const CVarAdapter varFirst(1ul);
    const CVarAdapter varSecond(L"two");
    const CVarAdapter varThird(L"");
    const TraceVarPair pairFirst = {"first", &varFirst};
    const TraceVarPair pairSecond = {"second", &varSecond};
    const TraceVarPair pairThird = {"third", &varThird};
    TraceVars(2, "m", &pairFirst, &pairSecond, &pairThird, kEnd);
    EXPECT_EQ(m_recorder.Text(), "m first=1,second=two,third=,\n");
    m_recorder.Forget();
    TraceVars(2, nullptr, &pairThird, &pairFirst, kEnd);
    EXPECT_EQ(m_recorder.Text(), "third=,first=1,\n");
}

TEST_F(TraceVarsTest, LeavesOutNullNamesAndNullValues)
{
    const CVarAdapter varValue(5ul);
    const TraceVarPair pairUnnamed = {nullptr, &varValue};
    const TraceVarPair pairWithoutValue = {"name", nullptr};
    const TraceVarPair pairNothing = {nullptr, nullptr};
    const TraceVarPair pairEmptyName = {"", &varValue};
    TraceVars(2, "m", &pairUnnamed, &pairWithoutValue, &pairNothing, &pairEmptyName, kEnd);
    EXPECT_EQ(m_recorder.Text(), "m 5,name=,,=5,\n");
}

TEST_F(TraceVarsTest, TakesTheTextAsItIs)
{
    const CVarAdapter varValue(L"%s=100%,\n");
    const TraceVarPair pair = {"%n", &varValue};
    TraceVars(2, "%s%d", &pair, kEnd);
    EXPECT_EQ(m_recorder.Text(), "%s%d %n=%s=100%,\n,\n");
}

struct LengthRow
{
    const char* label;
    size_t length;
    std::vector<size_t> pieces;
};

TEST_F(TraceVarsTest, WritesLongRecordsInPiecesOf2047)
{
    const LengthRow rows[] = {
        {"one below the limit", 2046, {2046}},
        {"the limit goes out in one call", 2047, {2047}},
        {"one above the limit", 2048, {2047, 1}},
        {"two above the limit", 2049, {2047, 2}},
        {"twice the limit", 4094, {2047, 2047}},
        {"twice the limit and one", 4095, {2047, 2047, 1}},
        {"long", 10'000, {2047, 2047, 2047, 2047, 1812}},
    };
    for (const LengthRow& row : rows)
    {
        SCOPED_TRACE(row.label);
        m_recorder.Forget();
        // A blank and a line feed come behind the message.
        std::string message(row.length - 2, 'x');
        for (size_t index = 0; index < message.size(); ++index)
        {
            message[index] = static_cast<char>('a' + index % 23);
        }
        TraceVars(kTraceError, message.c_str(), kEnd);
        std::vector<size_t> pieces;
        for (const TraceCall& record : m_recorder.Records())
        {
            pieces.push_back(record.text.size());
            EXPECT_EQ(record.level, kTraceError);
            EXPECT_EQ(record.second, 0u);
            EXPECT_EQ(record.third, 0u);
        }
        EXPECT_EQ(pieces, row.pieces);
        EXPECT_EQ(m_recorder.Text(), message + " \n");
    }
}

TEST_F(TraceVarsTest, DropsARecordThatFindsNoMemory)
{
    const std::string message(1000, 'x');
    TraceVars(2, "m", kEnd);
    m_recorder.Forget();
    bool raised = false;
    {
        const CFailingHeap failing;
        try
        {
            TraceVars(2, message.c_str(), kEnd);
        }
        catch (...)
        {
            raised = true;
        }
    }
    EXPECT_FALSE(raised);
    EXPECT_THAT(m_recorder.Records(), IsEmpty());
    TraceVars(2, "again", kEnd);
    EXPECT_EQ(m_recorder.Text(), "again \n");
}

TEST_F(TraceVarsTest, TraceTextIsAnUnnamedItemBehindAnEmptyMessage)
{
    TraceText(kTraceProgress, L"Http Send request");
    ASSERT_THAT(m_recorder.Records(), SizeIs(1));
    EXPECT_EQ(m_recorder.Records()[0].level, 2u);
    EXPECT_EQ(m_recorder.Text(), " Http Send request,\n");
}

TEST_F(TraceVarsTest, TraceTextVarAddsANamedValue)
{
    TraceTextVar(kTraceError, L"CHttpRequest::SetParentWnd", "hWndParent",
                 reinterpret_cast<const void*>(std::uintptr_t{0x120A4C}));
    ASSERT_THAT(m_recorder.Records(), SizeIs(1));
    EXPECT_EQ(m_recorder.Records()[0].level, 8u);
    EXPECT_EQ(m_recorder.Text(), " CHttpRequest::SetParentWnd,hWndParent=0x0000000000120A4C,\n");
    m_recorder.Forget();
    TraceTextVar(kTraceProgress, L"InternetConnect failed!", "dwError", 12029ul);
    ASSERT_THAT(m_recorder.Records(), SizeIs(1));
    EXPECT_EQ(m_recorder.Records()[0].level, 2u);
    EXPECT_EQ(m_recorder.Text(), " InternetConnect failed!,dwError=12029,\n");
    m_recorder.Forget();
    TraceTextVar(kTraceProgress, L"text", "name", L"value");
    EXPECT_EQ(m_recorder.Text(), " text,name=value,\n");
}

TEST_F(TraceVarsTest, TraceTextVarLeavesOutANullText)
{
    TraceTextVar(kTraceProgress, nullptr, "dwError", 12029ul);
    EXPECT_EQ(m_recorder.Text(), " dwError=12029,\n");
    m_recorder.Forget();
    TraceTextVar(kTraceProgress, nullptr, "name", L"value");
    EXPECT_EQ(m_recorder.Text(), " name=value,\n");
}

TEST_F(TraceVarsTest, TextsThatFindNoMemoryAreDropped)
{
    constexpr const wchar_t* kText = L"a text that needs a block of its own";
    TraceVars(2, "m", kEnd);
    m_recorder.Forget();
    bool raised = false;
    {
        const CFailingHeap failing;
        try
        {
            TraceText(2, kText);
            TraceTextVar(2, kText, "name", 1ul);
            TraceTextVar(2, kText, "name", static_cast<const void*>(nullptr));
            TraceTextVar(2, nullptr, "name", kText);
        }
        catch (...)
        {
            raised = true;
        }
    }
    EXPECT_FALSE(raised);
    EXPECT_THAT(m_recorder.Records(), IsEmpty());
}

}  // namespace
