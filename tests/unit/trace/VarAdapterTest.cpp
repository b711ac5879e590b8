#include "trace/VarAdapter.h"

#include <windows.h>

#include <comdef.h>

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <type_traits>
#include <vector>

#include "support/guarded_heap/GuardedHeap.h"
#include "support/ImportPatch.h"

namespace
{

struct ConversionCall
{
    UINT codePage;
    DWORD dwFlags;
    int cch;
    bool hasDefault;
};

// Stands for a system whose ANSI code page is 1252, whatever the machine has.
class CAnsiScript
{
public:
    CAnsiScript() { s_pThis = this; }

    const std::vector<ConversionCall>& Calls() const { return m_calls; }
    void Fail() { m_bFail = true; }

private:
    static int WINAPI Convert(UINT codePage, DWORD dwFlags, LPCWCH from, int cch, LPSTR to, int cb,
                              LPCCH pDefault, LPBOOL pbDefaultUsed)
    {
        s_pThis->m_calls.push_back({codePage, dwFlags, cch, pDefault != nullptr || pbDefaultUsed != nullptr});
        if (s_pThis->m_bFail)
        {
            return 0;
        }
        const auto pfnOriginal = s_pThis->m_patch.Original<decltype(Convert)>();
        return pfnOriginal(codePage == CP_ACP ? 1252 : codePage, dwFlags, from, cch, to, cb, pDefault,
                           pbDefaultUsed);
    }

    static inline CAnsiScript* s_pThis = nullptr;
    std::vector<ConversionCall> m_calls;
    bool m_bFail = false;
    CImportPatch m_patch{GetModuleHandleW(nullptr), "WideCharToMultiByte", Convert};
};

TEST(VarAdapterTest, ConvertsWideTextToTheAnsiCodePage)
{
    CAnsiScript script;
    EXPECT_EQ(CVarAdapter(L"caf\u00E9 \u20AC").Text(), "caf\xE9 \x80");
    ASSERT_EQ(script.Calls().size(), 2u);
    for (const ConversionCall& call : script.Calls())
    {
        EXPECT_EQ(call.codePage, UINT{CP_ACP});
        EXPECT_EQ(call.dwFlags, 0u);
        EXPECT_EQ(call.cch, -1);
        EXPECT_FALSE(call.hasDefault);
    }
}

TEST(VarAdapterTest, WritesTheDefaultCharacterForOneWithoutAMapping)
{
    const CAnsiScript script;
    EXPECT_EQ(CVarAdapter(L"a\u4E2Db").Text(), "a?b");
}

TEST(VarAdapterTest, KeepsALongText)
{
    const CAnsiScript script;
    EXPECT_EQ(CVarAdapter(std::wstring(5000, L'x').c_str()).Text(), std::string(5000, 'x'));
}

TEST(VarAdapterTest, TakesNullAndNothingForTheEmptyText)
{
    const CAnsiScript script;
    EXPECT_EQ(CVarAdapter(static_cast<const wchar_t*>(nullptr)).Text(), "");
    EXPECT_EQ(CVarAdapter(L"").Text(), "");
}

TEST(VarAdapterTest, IsEmptyWhenTheTextCannotBeConverted)
{
    CAnsiScript script;
    script.Fail();
    EXPECT_EQ(CVarAdapter(L"text").Text(), "");
}

TEST(VarAdapterTest, WritesANumberInDecimal)
{
    EXPECT_EQ(CVarAdapter(0ul).Text(), "0");
    EXPECT_EQ(CVarAdapter(7ul).Text(), "7");
    EXPECT_EQ(CVarAdapter(12029ul).Text(), "12029");
    EXPECT_EQ(CVarAdapter(2147483648ul).Text(), "2147483648");
    EXPECT_EQ(CVarAdapter(4294967295ul).Text(), "4294967295");
}

TEST(VarAdapterTest, WritesAPointerInSixteenHexadecimalDigits)
{
    const auto textOf = [](std::uintptr_t value)
    { return CVarAdapter(reinterpret_cast<const void*>(value)).Text(); };
    EXPECT_EQ(textOf(0x1A2B3C), "0x00000000001A2B3C");
    EXPECT_EQ(textOf(0), "0x0000000000000000");
    EXPECT_EQ(textOf(0xFEDCBA9876543210), "0xFEDCBA9876543210");
    EXPECT_EQ(textOf(0xFFFFFFFFFFFFFFFF), "0xFFFFFFFFFFFFFFFF");
}

HRESULT RaisedBy(const std::function<void()>& function)
{
    const CFailingHeap failing;
    try
    {
        function();
    }
    catch (const _com_error& error)
    {
        return error.Error();
    }
    return S_OK;
}

TEST(VarAdapterTest, RaisesTheComErrorOutOfMemory)
{
    const std::function<void()> wide = [] { const CVarAdapter var(L"a text that needs a block of its own"); };
    const std::function<void()> pointer = [] { const CVarAdapter var(static_cast<const void*>(nullptr)); };
    const size_t liveBefore = CGuardedHeap::LiveBlocks();
    const HRESULT hrWide = RaisedBy(wide);
    const HRESULT hrPointer = RaisedBy(pointer);
    const size_t liveAfter = CGuardedHeap::LiveBlocks();
    EXPECT_EQ(hrWide, E_OUTOFMEMORY);
    EXPECT_EQ(hrPointer, E_OUTOFMEMORY);
    EXPECT_EQ(liveAfter, liveBefore);
}

TEST(VarAdapterTest, IsDestroyedVirtually)
{
    EXPECT_TRUE(std::has_virtual_destructor_v<CVarAdapter>);
}

}  // namespace
