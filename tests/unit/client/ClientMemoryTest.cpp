// What the helper says when the platform has no memory, no window and no file for it, and that long paths are
// taken whole.
#include <algorithm>

#include "support/FailingHeap.h"
#include "unit/client/ClientTest.h"

using kvHttp::CComponent;
using kvHttp::Outcome;
using testing::IsEmpty;

namespace
{

// Of the text that a path is asked for into.
constexpr size_t kPathBytes = (MAX_PATH + 1) * sizeof(wchar_t);

HWND WINAPI MakeNoWindow(DWORD, LPCWSTR, LPCWSTR, DWORD, int, int, int, int, HWND, HMENU, HINSTANCE, LPVOID)
{
    return nullptr;
}

UINT WINAPI MakeNoTemporaryFile(LPCWSTR, LPCWSTR, UINT, LPWSTR)
{
    return 0;
}

decltype(&GetModuleFileNameW) g_pfnGetModuleFileName = nullptr;

// As it is for a program whose path is longer than usual.
DWORD WINAPI FillShortBuffers(HMODULE hModule, LPWSTR pszPath, DWORD cch)
{
    if (cch > MAX_PATH)
    {
        return g_pfnGetModuleFileName(hModule, pszPath, cch);
    }
    std::fill_n(pszPath, cch, L'\\');
    return cch;
}

class ClientMemoryTest : public ClientTest
{
};

TEST_F(ClientMemoryTest, StartsNothingWithoutMemoryForThePath)
{
    Outcome outcome = Outcome::Running;
    {
        const CFailingHeap memory{kPathBytes};
        outcome = m_client.Start({L"u", L"d", L""});
    }
    EXPECT_EQ(outcome, Outcome::NoMemory);
    EXPECT_THAT(m_httpRaw.m_calls, IsEmpty());
}

TEST_F(ClientMemoryTest, PostsForNoBytesWithoutMemoryForThePath)
{
    kvHttp::Answer answer;
    {
        const CFailingHeap memory{kPathBytes};
        answer = m_client.PostForBytes(L"u", L"d");
    }
    EXPECT_EQ(answer.outcome, Outcome::NoMemory);
    EXPECT_THAT(m_httpRaw.m_calls, IsEmpty());
}

TEST_F(ClientMemoryTest, PostsForNoBytesWithoutATemporaryFile)
{
    m_imports.Add("GetTempFileNameW", MakeNoTemporaryFile);
    EXPECT_EQ(m_client.PostForBytes(L"u", L"d").outcome, Outcome::FileNotWritable);
    EXPECT_THAT(m_httpRaw.m_calls, IsEmpty());
}

TEST_F(ClientMemoryTest, StartsNothingWithoutATimer)
{
    m_imports.Add("CreateWindowExW", MakeNoWindow);
    EXPECT_EQ(m_client.Start({L"u", L"d", L""}), Outcome::NoMemory);
    EXPECT_THAT(m_httpRaw.m_calls, IsEmpty());
}

TEST(FullPathTest, TakesLongPathsWhole)
{
    const std::wstring path = L"C:\\" + std::wstring(MAX_PATH * 2, L'p');
    EXPECT_EQ(kvHttp::FullPath(path), path);
    EXPECT_EQ(kvHttp::FullPath(L""), L"");
}

TEST(ComponentMemoryTest, LoadsNothingWithoutMemoryForThePath)
{
    CComponent component(L"kvHttp.dll");
    Outcome outcome = Outcome::Idle;
    {
        const CFailingHeap memory{kPathBytes};
        outcome = component.Open();
    }
    EXPECT_EQ(outcome, Outcome::NoMemory);
    EXPECT_EQ(component.Get(), nullptr);
}

TEST(ComponentMemoryTest, LooksBesideAProgramWithALongPath)
{
    CImportPatch patch(GetModuleHandleW(nullptr), "GetModuleFileNameW", FillShortBuffers);
    g_pfnGetModuleFileName = patch.Original<decltype(FillShortBuffers)>();
    CComponent component(L"kvHttp.dll");
    EXPECT_EQ(component.Open(), Outcome::Idle);
}

}  // namespace
