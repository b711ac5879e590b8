#include <gmock/gmock.h>

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

// In the end of a process: what the trace does once its library has been freed. The exit code tells.
void TraceAfterTheLibraryIsFreed()
{
    auto* const pLibrary = new CScriptedLibrary;  // outlives everything
    pLibrary->m_journal.On("FreeLibrary(trace)", 1,
                           [pLibrary]
                           {
                               pLibrary->m_journal.Clear();
                               pLibrary->m_trace.Take();
                               TraceVars(kTraceProgress, "too late", kEnd);
                               const bool bRight = GetTraceProc() == nullptr && pLibrary->Calls().empty() &&
                                                   pLibrary->m_trace.m_records.empty();
                               std::_Exit(bRight ? 0 : 1);
                           });
    std::exit(GetTraceProc() != nullptr ? 2 : 3);
}

TEST(TraceLibraryExitTest, IsFreedWhenTheProcessEnds)
{
    EXPECT_EXIT(TraceAfterTheLibraryIsFreed(), testing::ExitedWithCode(0), "")
        << "1: written to or loaded anew after its end; 2: not freed; 3: not loaded";
}

}  // namespace
