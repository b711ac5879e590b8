#include <gmock/gmock.h>

#include <cstdio>
#include <cstdlib>

#include "trace/Trace.h"
#include "unit/trace/TraceRecorder.h"

namespace
{

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr const TraceVarPair* kEnd = nullptr;

// The first lookup happens once in a process.
bool HasProcessOfItsOwn()
{
    return testing::UnitTest::GetInstance()->test_to_run_count() == 1;
}

class TraceLibraryTest : public testing::Test
{
protected:
    void SetUp() override
    {
        if (!HasProcessOfItsOwn())
        {
            GTEST_SKIP() << "needs a process of its own, as ctest gives it";
        }
    }

    CTraceRecorder m_recorder;
};

TEST_F(TraceLibraryTest, IsLoadedFromTheFolderOfTheModuleThatHoldsTheTraceCode)
{
    EXPECT_EQ(GetTraceProc(), &CTraceRecorder::Export);
    ASSERT_THAT(m_recorder.Queries(), SizeIs(1));
    HMODULE hModule = nullptr;
    GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                       static_cast<LPCWSTR>(m_recorder.Queries()[0]), &hModule);
    EXPECT_EQ(hModule, GetModuleHandleW(nullptr)) << "an address of a function of this very module";
    EXPECT_EQ(m_recorder.Library().Owner(), CLibraryScript::Handle(0x33));
    EXPECT_THAT(m_recorder.Library().Calls(),
                ElementsAre(L"GetModuleHandleW qnztraceX64.dll", L"GetModuleFileNameW",
                            L"LoadLibraryW C:\\folder\\qnztraceX64.dll"));
    EXPECT_THAT(m_recorder.Lookups(), ElementsAre("QNZTRACERAWA"));
}

TEST_F(TraceLibraryTest, IsLookedUpOnce)
{
    EXPECT_NE(GetTraceProc(), nullptr);
    m_recorder.Library().Forget();
    EXPECT_NE(GetTraceProc(), nullptr);
    TraceVars(kTraceProgress, "a", kEnd);
    EXPECT_THAT(m_recorder.Library().Calls(), IsEmpty());
    EXPECT_THAT(m_recorder.Lookups(), SizeIs(1));
    EXPECT_THAT(m_recorder.Queries(), SizeIs(1));
}

TEST_F(TraceLibraryTest, IsLoadedByTheFirstRecord)
{
    EXPECT_THAT(m_recorder.Library().Calls(), IsEmpty());
    TraceVars(kTraceProgress, "first", kEnd);
    EXPECT_THAT(m_recorder.Library().Calls(), SizeIs(3));
    EXPECT_EQ(m_recorder.Text(), "first \n");
}

TEST_F(TraceLibraryTest, StaysAwayWhenItCouldNotBeLoaded)
{
    m_recorder.Library().hLoaded = nullptr;
    EXPECT_EQ(GetTraceProc(), nullptr);
    EXPECT_THAT(m_recorder.Library().Calls(),
                ElementsAre(L"GetModuleHandleW qnztraceX64.dll", L"GetModuleFileNameW",
                            L"LoadLibraryW C:\\folder\\qnztraceX64.dll"));
    m_recorder.Library().Forget();

    // It is there now, and still not loaded.
    m_recorder.Library().hLoaded = CLibraryScript::Handle(0x51);
    EXPECT_EQ(GetTraceProc(), nullptr);
    TraceVars(kTraceProgress, "lost", kEnd);
    EXPECT_THAT(m_recorder.Library().Calls(), IsEmpty());
    EXPECT_THAT(m_recorder.Lookups(), IsEmpty());
    EXPECT_THAT(m_recorder.Records(), IsEmpty());
}

TEST_F(TraceLibraryTest, IsAskedAgainForAMissingExport)
{
    m_recorder.hasExport = false;
    EXPECT_EQ(GetTraceProc(), nullptr);
    EXPECT_EQ(GetTraceProc(), nullptr);
    TraceVars(kTraceProgress, "lost", kEnd);
    EXPECT_THAT(m_recorder.Lookups(), ElementsAre("QNZTRACERAWA", "QNZTRACERAWA", "QNZTRACERAWA"));
    EXPECT_THAT(m_recorder.Library().Calls(), SizeIs(3)) << "the library itself is loaded once";

    m_recorder.hasExport = true;
    TraceVars(kTraceProgress, "kept", kEnd);
    EXPECT_EQ(m_recorder.Text(), "kept \n");
    EXPECT_THAT(m_recorder.Lookups(), SizeIs(4));
    TraceVars(kTraceProgress, "kept too", kEnd);
    EXPECT_THAT(m_recorder.Lookups(), SizeIs(4));
}

// Made before the library, so that it goes after it, when the test has long ended: a library that has not
// been freed by then, or is still written to or loaded anew, ends the program with a failure.
class CExitCheck
{
public:
    ~CExitCheck()
    {
        const std::vector<std::wstring>& calls = m_recorder.Library().Calls();
        Require(!calls.empty() && calls.back() == L"FreeLibrary 81", "FreeLibrary as the last call");
        m_recorder.Forget();
        m_recorder.Library().Forget();
        TraceVars(kTraceProgress, "too late", kEnd);
        Require(GetTraceProc() == nullptr, "no export after the library has been freed");
        Require(m_recorder.Records().empty(), "no record after the library has been freed");
        Require(m_recorder.Library().Calls().empty(), "no second load");
    }

private:
    static void Require(bool bTrue, const char* pszWhat)
    {
        if (!bTrue)
        {
            std::printf("TraceLibraryExitTest: expected %s\n", pszWhat);
            std::fflush(stdout);
            std::_Exit(1);
        }
    }

    CTraceRecorder m_recorder;
};

TEST(TraceLibraryExitTest, IsFreedWhenTheProcessEnds)
{
    if (!HasProcessOfItsOwn())
    {
        GTEST_SKIP() << "needs a process of its own, as ctest gives it";
    }
    static const CExitCheck s_check;
    EXPECT_NE(GetTraceProc(), nullptr);
}

}  // namespace
