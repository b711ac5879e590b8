#include <gmock/gmock.h>

#include <cstdint>
#include <string>

#include "support/guarded_heap/GuardedHeap.h"
#include "support/RecordedTrace.h"
#include "trace/Trace.h"

namespace
{

using testing::ElementsAre;
using testing::IsEmpty;

constexpr const TraceVarPair* kEnd = nullptr;

class TraceVarsTest : public testing::Test
{
protected:
    CRecordedTrace m_trace;
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
        TraceVars(level, "m", kEnd);
        EXPECT_THAT(m_trace.Take(), ElementsAre(std::to_string(level) + "|m \n"));
    }
}

TEST_F(TraceVarsTest, WritesABlankBehindAMessageEvenAnEmptyOne)
{
    TraceVars(2, "message", kEnd);
    EXPECT_THAT(m_trace.Take(), ElementsAre("2|message \n"));
    TraceVars(2, "", kEnd);
    EXPECT_THAT(m_trace.Take(), ElementsAre("2| \n"));
    TraceVars(2, nullptr, kEnd);
    EXPECT_THAT(m_trace.Take(), ElementsAre("2|\n"));
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
    EXPECT_THAT(m_trace.Take(), ElementsAre("2|m first=1,second=two,third=,\n"));
    TraceVars(2, nullptr, &pairThird, &pairFirst, kEnd);
    EXPECT_THAT(m_trace.Take(), ElementsAre("2|third=,first=1,\n"));
}

TEST_F(TraceVarsTest, LeavesOutNullNamesAndNullValues)
{
    const CVarAdapter varValue(5ul);
    const TraceVarPair pairUnnamed = {nullptr, &varValue};
    const TraceVarPair pairWithoutValue = {"name", nullptr};
    const TraceVarPair pairNothing = {nullptr, nullptr};
    const TraceVarPair pairEmptyName = {"", &varValue};
    TraceVars(2, "m", &pairUnnamed, &pairWithoutValue, &pairNothing, &pairEmptyName, kEnd);
    EXPECT_THAT(m_trace.Take(), ElementsAre("2|m 5,name=,,=5,\n"));
}

TEST_F(TraceVarsTest, TakesTheTextAsItIs)
{
    const CVarAdapter varValue(L"%s=100%,\n");
    const TraceVarPair pair = {"%n", &varValue};
    TraceVars(2, "%s%d", &pair, kEnd);
    EXPECT_THAT(m_trace.Take(), ElementsAre("2|%s%d %n=%s=100%,\n,\n"));
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
        // A blank and a line feed come behind the message.
        std::string message(row.length - 2, 'x');
        for (size_t index = 0; index < message.size(); ++index)
        {
            message[index] = static_cast<char>('a' + index % 23);
        }
        TraceVars(kTraceError, message.c_str(), kEnd);
        std::vector<size_t> pieces;
        std::string text;
        for (const std::string& record : m_trace.Take())
        {
            EXPECT_EQ(record.substr(0, 2), "8|");
            pieces.push_back(record.size() - 2);
            text += record.substr(2);
        }
        EXPECT_EQ(pieces, row.pieces);
        EXPECT_EQ(text, message + " \n");
    }
}

TEST_F(TraceVarsTest, DropsARecordThatFindsNoMemory)
{
    const std::string message(1000, 'x');
    TraceVars(2, "m", kEnd);
    m_trace.m_records.clear();
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
    EXPECT_THAT(m_trace.Take(), IsEmpty());
    TraceVars(2, "again", kEnd);
    EXPECT_THAT(m_trace.Take(), ElementsAre("2|again \n"));
}

TEST_F(TraceVarsTest, TraceTextIsAnUnnamedItemBehindAnEmptyMessage)
{
    TraceText(kTraceProgress, L"Http Send request");
    EXPECT_THAT(m_trace.Take(), ElementsAre("2| Http Send request,\n"));
}

TEST_F(TraceVarsTest, TraceTextVarAddsANamedValue)
{
    TraceTextVar(kTraceError, L"CHttpRequest::SetParentWnd", "hWndParent",
                 reinterpret_cast<const void*>(std::uintptr_t{0x120A4C}));
    EXPECT_THAT(m_trace.Take(),
                ElementsAre("8| CHttpRequest::SetParentWnd,hWndParent=0x0000000000120A4C,\n"));
    TraceTextVar(kTraceProgress, L"InternetConnect failed!", "dwError", 12029ul);
    EXPECT_THAT(m_trace.Take(), ElementsAre("2| InternetConnect failed!,dwError=12029,\n"));
    TraceTextVar(kTraceProgress, L"text", "name", L"value");
    EXPECT_THAT(m_trace.Take(), ElementsAre("2| text,name=value,\n"));
}

TEST_F(TraceVarsTest, TraceTextVarLeavesOutANullText)
{
    TraceTextVar(kTraceProgress, nullptr, "dwError", 12029ul);
    EXPECT_THAT(m_trace.Take(), ElementsAre("2| dwError=12029,\n"));
    TraceTextVar(kTraceProgress, nullptr, "name", L"value");
    EXPECT_THAT(m_trace.Take(), ElementsAre("2| name=value,\n"));
}

TEST_F(TraceVarsTest, TextsThatFindNoMemoryAreDropped)
{
    constexpr const wchar_t* kText = L"a text that needs a block of its own";
    TraceVars(2, "m", kEnd);
    m_trace.m_records.clear();
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
    EXPECT_THAT(m_trace.Take(), IsEmpty());
}

}  // namespace
