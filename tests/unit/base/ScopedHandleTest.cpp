#include "base/ScopedHandle.h"

#include <gmock/gmock.h>

#include <cstdint>
#include <vector>

#include "support/ImportPatch.h"

namespace
{

using testing::ElementsAre;
using testing::IsEmpty;

std::vector<int>* g_pClosed = nullptr;

struct NumberTraits
{
    using Handle = int;
    static Handle Invalid() { return -7; }
    static void Close(Handle handle)
    {
        g_pClosed->push_back(handle);
        SetLastError(ERROR_INVALID_HANDLE);
    }
};
using CNumberHandle = CScopedHandle<NumberTraits>;

class ScopedHandleTest : public testing::Test
{
protected:
    ScopedHandleTest() { g_pClosed = &m_closed; }

    std::vector<int> m_closed;
};

TEST_F(ScopedHandleTest, HoldsNothingAtFirst)
{
    {
        const CNumberHandle handle;
        EXPECT_FALSE(handle);
        EXPECT_EQ(handle.Get(), -7);
    }
    EXPECT_THAT(m_closed, IsEmpty());
}

TEST_F(ScopedHandleTest, ClosesAtTheEndOfTheScope)
{
    {
        const CNumberHandle handle(3);
        EXPECT_TRUE(handle);
        EXPECT_EQ(handle.Get(), 3);
        EXPECT_THAT(m_closed, IsEmpty());
    }
    EXPECT_THAT(m_closed, ElementsAre(3));
}

TEST_F(ScopedHandleTest, ClosesOnce)
{
    {
        CNumberHandle handle(3);
        handle.Close();
        EXPECT_FALSE(handle);
        EXPECT_EQ(handle.Get(), -7);
        handle.Close();
    }
    EXPECT_THAT(m_closed, ElementsAre(3));
}

TEST_F(ScopedHandleTest, ClosesBeforeItHandsOutThePlaceForAnother)
{
    {
        CNumberHandle handle(3);
        int* place = handle.Put();
        EXPECT_THAT(m_closed, ElementsAre(3));
        EXPECT_EQ(*place, -7);
        *place = 4;
        EXPECT_EQ(handle.Get(), 4);
    }
    EXPECT_THAT(m_closed, ElementsAre(3, 4));
}

TEST_F(ScopedHandleTest, HandsItsHandleOver)
{
    {
        CNumberHandle handle(3);
        EXPECT_EQ(handle.Detach(), 3);
        EXPECT_FALSE(handle);
        EXPECT_EQ(handle.Detach(), -7);
    }
    EXPECT_THAT(m_closed, IsEmpty());
}

TEST_F(ScopedHandleTest, LeavesTheLastErrorAsItWas)
{
    SetLastError(ERROR_DISK_FULL);
    {
        const CNumberHandle handle(3);
    }
    EXPECT_EQ(GetLastError(), DWORD{ERROR_DISK_FULL});
    CNumberHandle handle(4);
    SetLastError(ERROR_SUCCESS);
    handle.Close();
    EXPECT_EQ(GetLastError(), DWORD{ERROR_SUCCESS});
}

template <typename Handle>
Handle MakeHandle(std::uintptr_t number)
{
    return reinterpret_cast<Handle>(number);
}

std::vector<void*>* g_pClosedHandles = nullptr;

BOOL WINAPI ScriptedCloseHandle(HANDLE handle)
{
    g_pClosedHandles->push_back(handle);
    return TRUE;
}

LSTATUS WINAPI ScriptedRegCloseKey(HKEY hKey)
{
    g_pClosedHandles->push_back(hKey);
    return ERROR_SUCCESS;
}

TEST(ScopedHandleKindsTest, CloseWithTheirOwnCallAndKnowTheirInvalidValue)
{
    std::vector<void*> closedHandles;
    std::vector<void*> closedKeys;
    {
        g_pClosedHandles = &closedHandles;
        const CImportPatch patch(GetModuleHandleW(nullptr), "CloseHandle", ScriptedCloseHandle);
        EXPECT_TRUE(CFileHandle(MakeHandle<HANDLE>(0x10)));
        EXPECT_FALSE(CFileHandle(INVALID_HANDLE_VALUE));
        EXPECT_FALSE(CFileHandle());
        EXPECT_TRUE(CKernelHandle(MakeHandle<HANDLE>(0x20)));
        EXPECT_FALSE(CKernelHandle(nullptr));
        EXPECT_FALSE(CKernelHandle());
    }
    {
        g_pClosedHandles = &closedKeys;
        const CImportPatch patch(GetModuleHandleW(nullptr), "RegCloseKey", ScriptedRegCloseKey);
        EXPECT_TRUE(CRegistryKey(MakeHandle<HKEY>(0x30)));
        EXPECT_FALSE(CRegistryKey(nullptr));
        EXPECT_FALSE(CRegistryKey());
    }
    EXPECT_THAT(closedHandles, ElementsAre(MakeHandle<void*>(0x10), MakeHandle<void*>(0x20)));
    EXPECT_THAT(closedKeys, ElementsAre(MakeHandle<void*>(0x30)));
}

}  // namespace
