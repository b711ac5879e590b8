#include <gmock/gmock.h>

#include <cstdio>
#include <cstdlib>

#include "support/RecordedTrace.h"
#include "trace/Trace.h"

namespace
{

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr const TraceVarPair* kEnd = nullptr;
constexpr char kHandleCall[] = "GetModuleHandleW('qnztraceX64.dll')";
constexpr char kLoad[] = "LoadLibraryW('C:\\folder\\qnztraceX64.dll')";
constexpr char kLookup[] = "GetProcAddress(trace, QNZTRACERAWA)";

// The first lookup happens once in a process.
bool HasProcessOfItsOwn()
{
    return testing::UnitTest::GetInstance()->test_to_run_count() == 1;
}

const HMODULE kOwner = reinterpret_cast<HMODULE>(INT_PTR{0x330000});

// The trace library, with the calls that load it. The module that holds the trace code is kOwner.
class CScriptedLibrary
{
public:
    CScriptedLibrary()
    {
        s_pThis = this;
        m_trace.Attach(m_imports);
        m_pfnQuery = m_imports.Add("VirtualQuery", Query);
        m_imports.Add("GetModuleFileNameW", FileName);
    }
    CScriptedLibrary(const CScriptedLibrary&) = delete;
    CScriptedLibrary& operator=(const CScriptedLibrary&) = delete;

    std::vector<std::string> Calls() const { return m_journal.Texts(CALL_LIBRARY); }

    CJournal m_journal;
    CRecordedTrace m_trace{m_journal};
    // Addresses whose module was asked for.
    std::vector<const void*> m_queries;

private:
    static SIZE_T WINAPI Query(LPCVOID address, PMEMORY_BASIC_INFORMATION pInformation, SIZE_T cb)
    {
        const SIZE_T cbWritten = s_pThis->m_pfnQuery(address, pInformation, cb);
        s_pThis->m_queries.push_back(address);
        pInformation->AllocationBase = kOwner;
        return cbWritten;
    }

    static DWORD WINAPI FileName(HMODULE hModule, LPWSTR buffer, DWORD /*cch*/)
    {
        EXPECT_EQ(hModule, kOwner);
        return static_cast<DWORD>(std::wstring(L"C:\\folder\\module.dll").copy(buffer, MAX_PATH));
    }

    static inline CScriptedLibrary* s_pThis = nullptr;
    decltype(&Query) m_pfnQuery = nullptr;
    CImportPatches m_imports;
};

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

    CScriptedLibrary m_library;
};

TEST_F(TraceLibraryTest, IsLoadedFromTheFolderOfTheModuleThatHoldsTheTraceCode)
{
    EXPECT_EQ(GetTraceProc(), &CRecordedTrace::Write);
    ASSERT_THAT(m_library.m_queries, SizeIs(1));
    HMODULE hModule = nullptr;
    GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                       static_cast<LPCWSTR>(m_library.m_queries[0]), &hModule);
    EXPECT_EQ(hModule, GetModuleHandleW(nullptr)) << "an address of a function of this very module";
    EXPECT_THAT(m_library.Calls(), ElementsAre(kHandleCall, kLoad, kLookup));
}

TEST_F(TraceLibraryTest, IsLookedUpOnce)
{
    EXPECT_NE(GetTraceProc(), nullptr);
    EXPECT_NE(GetTraceProc(), nullptr);
    TraceVars(kTraceProgress, "a", kEnd);
    EXPECT_THAT(m_library.Calls(), SizeIs(3));
    EXPECT_THAT(m_library.m_queries, SizeIs(1));
}

TEST_F(TraceLibraryTest, IsLoadedByTheFirstRecord)
{
    EXPECT_THAT(m_library.Calls(), IsEmpty());
    TraceVars(kTraceProgress, "first", kEnd);
    EXPECT_THAT(m_library.Calls(), SizeIs(3));
    EXPECT_THAT(m_library.m_trace.Take(), ElementsAre("2|first \n"));
}

TEST_F(TraceLibraryTest, StaysAwayWhenItCouldNotBeLoaded)
{
    m_library.m_trace.m_bFound = false;
    EXPECT_EQ(GetTraceProc(), nullptr);
    EXPECT_THAT(m_library.Calls(), ElementsAre(kHandleCall, kLoad));

    // It is there now, and still not loaded.
    m_library.m_trace.m_bFound = true;
    EXPECT_EQ(GetTraceProc(), nullptr);
    TraceVars(kTraceProgress, "lost", kEnd);
    EXPECT_THAT(m_library.Calls(), SizeIs(2));
    EXPECT_THAT(m_library.m_trace.Take(), IsEmpty());
}

TEST_F(TraceLibraryTest, IsAskedAgainForAMissingExport)
{
    m_library.m_trace.m_exports.Always(false);
    EXPECT_EQ(GetTraceProc(), nullptr);
    EXPECT_EQ(GetTraceProc(), nullptr);
    TraceVars(kTraceProgress, "lost", kEnd);
    EXPECT_THAT(m_library.Calls(), ElementsAre(kHandleCall, kLoad, kLookup, kLookup, kLookup));

    m_library.m_trace.m_exports.Always(true);
    TraceVars(kTraceProgress, "kept", kEnd);
    EXPECT_THAT(m_library.m_trace.Take(), ElementsAre("2|kept \n"));
    EXPECT_THAT(m_library.Calls(), SizeIs(6));
    TraceVars(kTraceProgress, "kept too", kEnd);
    EXPECT_THAT(m_library.Calls(), SizeIs(6));
}

// Made before the library, so that it goes after it, when the test has long ended: a library that has not
// been freed by then, or is still written to or loaded anew, ends the program with a failure.
class CExitCheck
{
public:
    ~CExitCheck()
    {
        const std::vector<std::string> calls = m_library.Calls();
        Require(!calls.empty() && calls.back() == "FreeLibrary(trace)", "FreeLibrary as the last call");
        m_library.m_trace.Take();
        TraceVars(kTraceProgress, "too late", kEnd);
        Require(GetTraceProc() == nullptr, "no export after the library has been freed");
        Require(m_library.m_trace.m_records.empty(), "no record after the library has been freed");
        Require(m_library.Calls().size() == calls.size(), "no second load");
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

    CScriptedLibrary m_library;
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
