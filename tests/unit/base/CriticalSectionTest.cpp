#include "base/CriticalSection.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "support/ImportPatch.h"

namespace
{

using testing::ElementsAre;
using Function = void WINAPI(LPCRITICAL_SECTION);

std::vector<std::string> g_calls;
const void* g_pWatched = nullptr;
CImportPatch* g_pPatches[4] = {};

template <int index>
void WINAPI Record(LPCRITICAL_SECTION pcs)
{
    static constexpr const char* kNames[] = {"initialize", "enter", "leave", "delete"};
    if (pcs == g_pWatched)
    {
        g_calls.emplace_back(kNames[index]);
    }
    g_pPatches[index]->Original<Function>()(pcs);
}

TEST(CriticalSectionTest, IsHeldForAScopeAndDeletedAtItsEnd)
{
    const HMODULE hProgram = GetModuleHandleW(nullptr);
    CImportPatch patches[] = {{hProgram, "InitializeCriticalSection", Record<0>},
                              {hProgram, "EnterCriticalSection", Record<1>},
                              {hProgram, "LeaveCriticalSection", Record<2>},
                              {hProgram, "DeleteCriticalSection", Record<3>}};
    for (size_t i = 0; i < std::size(patches); ++i)
    {
        g_pPatches[i] = &patches[i];
    }
    alignas(CCriticalSection) unsigned char place[sizeof(CCriticalSection)];
    g_pWatched = place;
    auto* const pcs = new (place) CCriticalSection;
    EXPECT_THAT(g_calls, ElementsAre("initialize"));
    {
        const CCriticalSectionLock lock(*pcs);
        EXPECT_THAT(g_calls, ElementsAre("initialize", "enter"));
    }
    EXPECT_THAT(g_calls, ElementsAre("initialize", "enter", "leave"));
    pcs->~CCriticalSection();
    EXPECT_THAT(g_calls, ElementsAre("initialize", "enter", "leave", "delete"));
    g_pWatched = nullptr;
}

}  // namespace
