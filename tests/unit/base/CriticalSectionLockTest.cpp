#include "base/CriticalSectionLock.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "support/ImportPatch.h"

namespace
{

struct Call
{
    char kind;
    const CRITICAL_SECTION* pcs;
};

bool operator==(const Call& a, const Call& b)
{
    return a.kind == b.kind && a.pcs == b.pcs;
}

std::vector<Call>* g_pCalls = nullptr;
const CRITICAL_SECTION* g_pWatched = nullptr;

void Record(char kind, const CRITICAL_SECTION* pcs)
{
    if (pcs == g_pWatched)
    {
        g_pCalls->push_back({kind, pcs});
    }
}

TEST(CriticalSectionLockTest, HoldsTheSectionForItsScope)
{
    std::vector<Call> calls;
    g_pCalls = &calls;
    CRITICAL_SECTION cs;
    InitializeCriticalSection(&cs);
    g_pWatched = &cs;
    static CImportPatch* s_pEnter = nullptr;
    static CImportPatch* s_pLeave = nullptr;
    using Function = void WINAPI(LPCRITICAL_SECTION);
    Function* const pfnEnter = [](LPCRITICAL_SECTION pcs)
    {
        Record('+', pcs);
        s_pEnter->Original<Function>()(pcs);
    };
    Function* const pfnLeave = [](LPCRITICAL_SECTION pcs)
    {
        Record('-', pcs);
        s_pLeave->Original<Function>()(pcs);
    };
    {
        CImportPatch enter(GetModuleHandleW(nullptr), "EnterCriticalSection", pfnEnter);
        CImportPatch leave(GetModuleHandleW(nullptr), "LeaveCriticalSection", pfnLeave);
        s_pEnter = &enter;
        s_pLeave = &leave;
        {
            const CCriticalSectionLock lock(cs);
            EXPECT_THAT(calls, testing::ElementsAre(Call{'+', &cs}));
        }
    }
    EXPECT_THAT(calls, testing::ElementsAre(Call{'+', &cs}, Call{'-', &cs}));
    DeleteCriticalSection(&cs);
}

}  // namespace
