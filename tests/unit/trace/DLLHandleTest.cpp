#include "trace/DLLHandle.h"

#include <gmock/gmock.h>

#include <cwchar>
#include <string>

#include "unit/trace/LibraryScript.h"

namespace
{

using testing::ElementsAre;
using testing::IsEmpty;

class DLLHandleTest : public testing::Test
{
protected:
    CLibraryScript m_script;
};

TEST_F(DLLHandleTest, HoldsNothingAtFirstAndFreesNothing)
{
    {
        const CDLLHandle handle;
        EXPECT_EQ(handle.Get(), nullptr);
    }
    EXPECT_THAT(m_script.Calls(), IsEmpty());
}

TEST_F(DLLHandleTest, LoadsFromTheFolderOfItsOwnerOnly)
{
    m_script.hLoaded = CLibraryScript::Handle(5);
    CDLLHandle handle;
    handle.Load(L"some.dll", CLibraryScript::Handle(3), 1);
    EXPECT_THAT(m_script.Calls(), ElementsAre(L"GetModuleHandleW some.dll", L"GetModuleFileNameW",
                                              L"LoadLibraryW C:\\folder\\some.dll"));
    EXPECT_EQ(m_script.Owner(), CLibraryScript::Handle(3));
    EXPECT_EQ(m_script.BufferSize(), 260u);
    // That of LoadLibraryW, not of GetModuleHandleW.
    EXPECT_EQ(handle.Get(), CLibraryScript::Handle(5));
}

struct FolderRow
{
    const char* label;
    const wchar_t* owner;
    const wchar_t* loaded;
};

TEST_F(DLLHandleTest, BuildsThePathFromTheOwnersFolder)
{
    const FolderRow rows[] = {
        {"nested", L"C:\\Program Files\\a b\\c.d\\module.dll",
         L"LoadLibraryW C:\\Program Files\\a b\\c.d\\some.dll"},
        {"root", L"C:\\module.dll", L"LoadLibraryW C:\\some.dll"},
        {"share", L"\\\\server\\share\\dir\\module.dll", L"LoadLibraryW \\\\server\\share\\dir\\some.dll"},
    };
    for (const FolderRow& row : rows)
    {
        SCOPED_TRACE(row.label);
        m_script.modulePath = row.owner;
        m_script.Forget();
        CDLLHandle handle;
        handle.Load(L"some.dll", CLibraryScript::Handle(3), 1);
        EXPECT_THAT(m_script.Calls(), testing::Contains(row.loaded));
    }
}

TEST_F(DLLHandleTest, TheReservedArgumentHasNoEffect)
{
    for (const int reserved : {0, 1, -1})
    {
        m_script.Forget();
        CDLLHandle handle;
        handle.Load(L"some.dll", CLibraryScript::Handle(3), reserved);
        EXPECT_THAT(m_script.Calls(), testing::Contains(L"LoadLibraryW C:\\folder\\some.dll"));
    }
}

TEST_F(DLLHandleTest, ANullNameDoesNothing)
{
    m_script.hLoaded = CLibraryScript::Handle(5);
    CDLLHandle handle;
    handle.Load(nullptr, CLibraryScript::Handle(3), 1);
    EXPECT_THAT(m_script.Calls(), IsEmpty());
    EXPECT_EQ(handle.Get(), nullptr);

    handle.Load(L"some.dll", CLibraryScript::Handle(3), 1);
    m_script.Forget();
    handle.Load(nullptr, CLibraryScript::Handle(3), 1);
    EXPECT_THAT(m_script.Calls(), IsEmpty());
    EXPECT_EQ(handle.Get(), CLibraryScript::Handle(5));
}

TEST_F(DLLHandleTest, FreesWhatItHoldsBeforeItLoadsAnother)
{
    m_script.hLoaded = CLibraryScript::Handle(5);
    CDLLHandle handle;
    handle.Load(L"first.dll", CLibraryScript::Handle(3), 1);
    m_script.Forget();
    m_script.hLoaded = CLibraryScript::Handle(6);
    handle.Load(L"second.dll", CLibraryScript::Handle(3), 1);
    EXPECT_THAT(m_script.Calls(), ElementsAre(L"FreeLibrary 5", L"GetModuleHandleW second.dll",
                                              L"GetModuleFileNameW", L"LoadLibraryW C:\\folder\\second.dll"));
    EXPECT_EQ(handle.Get(), CLibraryScript::Handle(6));
}

TEST_F(DLLHandleTest, FreesTheLibraryAtItsEnd)
{
    m_script.hLoaded = CLibraryScript::Handle(5);
    {
        CDLLHandle handle;
        handle.Load(L"some.dll", CLibraryScript::Handle(3), 1);
        m_script.Forget();
    }
    EXPECT_THAT(m_script.Calls(), ElementsAre(L"FreeLibrary 5"));
}

TEST_F(DLLHandleTest, FreesNothingAfterAFailedLoad)
{
    m_script.hLoaded = nullptr;
    {
        CDLLHandle handle;
        handle.Load(L"some.dll", CLibraryScript::Handle(3), 1);
        EXPECT_EQ(handle.Get(), nullptr);
        m_script.Forget();
        handle.Load(L"some.dll", CLibraryScript::Handle(3), 1);
    }
    EXPECT_THAT(m_script.Calls(), ElementsAre(L"GetModuleHandleW some.dll", L"GetModuleFileNameW",
                                              L"LoadLibraryW C:\\folder\\some.dll"));
}

TEST_F(DLLHandleTest, HoldsNothingWhenALaterLoadFails)
{
    m_script.hLoaded = CLibraryScript::Handle(5);
    {
        CDLLHandle handle;
        handle.Load(L"some.dll", CLibraryScript::Handle(3), 1);
        m_script.hLoaded = nullptr;
        handle.Load(L"some.dll", CLibraryScript::Handle(3), 1);
        EXPECT_EQ(handle.Get(), nullptr);
        m_script.Forget();
    }
    EXPECT_THAT(m_script.Calls(), IsEmpty());
}

TEST_F(DLLHandleTest, LoadsFromNowhereElseWhenTheOwnersFolderIsUnknown)
{
    m_script.hLoaded = CLibraryScript::Handle(5);
    m_script.modulePath.clear();
    CDLLHandle handle;
    handle.Load(L"some.dll", CLibraryScript::Handle(3), 1);
    EXPECT_EQ(handle.Get(), nullptr);
    EXPECT_THAT(m_script.Calls(), ElementsAre(L"GetModuleHandleW some.dll", L"GetModuleFileNameW"));
}

TEST_F(DLLHandleTest, LoadsFromNowhereElseWhenTheOwnersPathIsTooLong)
{
    m_script.hLoaded = CLibraryScript::Handle(5);
    // Cut off, it would name the folder above.
    m_script.modulePath = L"C:\\folder\\" + std::wstring(300, L'x') + L"\\module.dll";
    CDLLHandle handle;
    handle.Load(L"some.dll", CLibraryScript::Handle(3), 1);
    EXPECT_EQ(handle.Get(), nullptr);
    EXPECT_THAT(m_script.Calls(), ElementsAre(L"GetModuleHandleW some.dll", L"GetModuleFileNameW"));
}

size_t g_cchSplit = 0;

BOOL WINAPI ScriptedRemoveFileSpec(LPWSTR pszPath)
{
    g_cchSplit = wcsnlen(pszPath, MAX_PATH);
    return FALSE;
}

TEST_F(DLLHandleTest, EndsAPathThatFillsTheBuffer)
{
    const CImportPatch split(GetModuleHandleW(nullptr), "PathRemoveFileSpecW", ScriptedRemoveFileSpec);
    for (const size_t length : {size_t{259}, size_t{260}, size_t{300}})
    {
        g_cchSplit = 0;
        m_script.modulePath = L"C:\\" + std::wstring(length - 3, L'x');
        CDLLHandle handle;
        handle.Load(L"some.dll", CLibraryScript::Handle(3), 1);
        EXPECT_EQ(g_cchSplit, 259u) << length;
    }
}

TEST_F(DLLHandleTest, LoadsFromNowhereElseWhenTheLibrarysPathWouldBeTooLong)
{
    m_script.hLoaded = CLibraryScript::Handle(5);
    for (const size_t length : {size_t{258}, size_t{259}, size_t{260}})
    {
        SCOPED_TRACE(length);
        const std::wstring folder = L"C:\\folder\\" + std::wstring(length - 19, L'x');
        m_script.modulePath = folder + L"\\m.dll";
        m_script.Forget();
        CDLLHandle handle;
        handle.Load(L"some.dll", CLibraryScript::Handle(3), 1);
        // The library's path has length characters; 259 and a terminator fill the buffer.
        if (length < 260)
        {
            EXPECT_EQ(handle.Get(), CLibraryScript::Handle(5));
            EXPECT_EQ(m_script.Calls().back(), L"LoadLibraryW " + folder + L"\\some.dll");
        }
        else
        {
            EXPECT_EQ(handle.Get(), nullptr);
            EXPECT_EQ(m_script.Calls().back(), L"GetModuleFileNameW");
        }
    }
}

TEST_F(DLLHandleTest, FreesAnAttachedLibrary)
{
    {
        CDLLHandle handle;
        handle.Attach(CLibraryScript::Handle(9));
        EXPECT_EQ(handle.Get(), CLibraryScript::Handle(9));
        EXPECT_THAT(m_script.Calls(), IsEmpty());
    }
    EXPECT_THAT(m_script.Calls(), ElementsAre(L"FreeLibrary 9"));
    m_script.Forget();
    {
        CDLLHandle handle;
        handle.Attach(nullptr);
        EXPECT_EQ(handle.Get(), nullptr);
    }
    EXPECT_THAT(m_script.Calls(), IsEmpty());
}

}  // namespace
