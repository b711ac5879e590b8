#include "trace/AutoFunTrace.h"

#include <comdef.h>

#include <gmock/gmock.h>

#include <string>
#include <type_traits>

#include "support/guarded_heap/GuardedHeap.h"
#include "support/RecordedTrace.h"
#include "trace/Trace.h"

namespace
{

using testing::ElementsAre;
using testing::IsEmpty;

class AutoFunTraceTest : public testing::Test
{
protected:
    CRecordedTrace m_trace;
};

TEST_F(AutoFunTraceTest, WritesEntryAtOnceAndExitAtTheEndOfTheScope)
{
    {
        const CAutoFunTrace trace("CHttpSession::OpenInternet().");
        EXPECT_THAT(m_trace.Take(), ElementsAre("2|--> CHttpSession::OpenInternet(). \n"));
    }
    EXPECT_THAT(m_trace.Take(), ElementsAre("2|<-- CHttpSession::OpenInternet(). \n"));
}

TEST_F(AutoFunTraceTest, TakesAWideName)
{
    {
        const CAutoFunTrace trace(L"CClass::Method");
    }
    EXPECT_THAT(m_trace.Take(), ElementsAre("2|--> CClass::Method \n", "2|<-- CClass::Method \n"));
}

TEST_F(AutoFunTraceTest, TakesANullOrEmptyWideNameForNoName)
{
    {
        const CAutoFunTrace trace(static_cast<const wchar_t*>(nullptr));
        const CAutoFunTrace inner(L"");
    }
    EXPECT_THAT(m_trace.Take(), ElementsAre("2|-->  \n", "2|-->  \n", "2|<--  \n", "2|<--  \n"));
}

TEST_F(AutoFunTraceTest, CopiesItsName)
{
    std::string name = "CClass::Method";
    {
        const CAutoFunTrace trace(name.c_str());
        name = "something else";
    }
    EXPECT_THAT(m_trace.Take(), ElementsAre("2|--> CClass::Method \n", "2|<-- CClass::Method \n"));
}

TEST_F(AutoFunTraceTest, Nests)
{
    {
        const CAutoFunTrace outer("outer");
        const CAutoFunTrace inner("inner");
    }
    EXPECT_THAT(m_trace.Take(),
                ElementsAre("2|--> outer \n", "2|--> inner \n", "2|<-- inner \n", "2|<-- outer \n"));
}

TEST_F(AutoFunTraceTest, RaisesTheComErrorWhenAWideNameFindsNoMemory)
{
    TraceVars(2, "m", static_cast<const TraceVarPair*>(nullptr));  // finds the library
    m_trace.Take();
    HRESULT hr = S_OK;
    {
        const CFailingHeap failing;
        try
        {
            const CAutoFunTrace trace(L"a name that needs a block of its own");
        }
        catch (const _com_error& error)
        {
            hr = error.Error();
        }
    }
    EXPECT_EQ(hr, E_OUTOFMEMORY);
    EXPECT_THAT(m_trace.Take(), IsEmpty());
}

// Whichever allocation of a wide name fails, the COM error is all that a caller has to expect. The records
// of a name that was converted may be lost.
TEST_F(AutoFunTraceTest, RaisesNothingButTheComErrorForAWideName)
{
    TraceVars(2, "m", static_cast<const TraceVarPair*>(nullptr));
    unsigned raised = 0;
    unsigned failing = 1;
    for (bool bFailed = true; bFailed; ++failing)
    {
        m_trace.Take();
        bool bOther = false;
        HRESULT hr = S_OK;
        {
            const CFailingHeap heap(failing, 1);
            try
            {
                const CAutoFunTrace trace(L"a name that needs a block of its own");
            }
            catch (const _com_error& error)
            {
                hr = error.Error();
            }
            catch (...)
            {
                bOther = true;
            }
            bFailed = heap.Requests() >= failing;
        }
        EXPECT_FALSE(bOther) << "allocation " << failing;
        EXPECT_TRUE(hr == S_OK || hr == E_OUTOFMEMORY) << "allocation " << failing << " gives " << hr;
        raised += hr == E_OUTOFMEMORY ? 1 : 0;
    }
    EXPECT_EQ(raised, 2u) << "the converted text, and the name";
    EXPECT_GT(failing, 4u) << "the records were tried too";
}

TEST_F(AutoFunTraceTest, RaisesNothingWhenANarrowNameFindsNoMemory)
{
    // The first record finds the export; the recorder must not allocate for that below.
    TraceVars(2, "m", static_cast<const TraceVarPair*>(nullptr));
    bool raised = false;
    {
        const CFailingHeap failing(1, 2);
        try
        {
            const CAutoFunTrace trace("a name that needs a block of its own");
        }
        catch (...)
        {
            raised = true;
        }
    }
    EXPECT_FALSE(raised);
}

// Records that nobody takes cost nothing.
TEST_F(AutoFunTraceTest, MakesNothingWithoutALibrary)
{
    m_trace.m_bFound = false;
    TraceText(2, L"looks for the library");
    const CFailingHeap heap(1000, 1);  // counts
    {
        const CAutoFunTrace narrow("a name that needs a block of its own");
        const CAutoFunTrace wide(L"a name that needs a block of its own");
        TraceText(2, L"a text that needs a block of its own");
        TraceTextVar(2, L"a text that needs a block of its own", "name",
                     L"a value that needs a block of its own");
    }
    EXPECT_EQ(heap.Requests(), 0u);
}

TEST_F(AutoFunTraceTest, IsDestroyedVirtually)
{
    EXPECT_TRUE(std::has_virtual_destructor_v<CAutoFunTrace>);
}

}  // namespace
