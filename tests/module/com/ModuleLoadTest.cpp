// A host that loads the module, uses it and frees it, again and again, as long as its process lives.
#include <gtest/gtest.h>

#include "module/com/ServerModule.h"
#include "support/ImportPatch.h"
#include "support/loopback/LoopbackServer.h"
#include "support/ProcessResources.h"

namespace
{

constexpr DWORD kPatienceMs = 20000;

HANDLE g_hPosted = nullptr;

// A worker that reaches its end before the post has returned is set back to 5, as intended: this one waits.
BOOL WINAPI Connected(DWORD*, DWORD)
{
    return WaitForSingleObject(g_hPosted, kPatienceMs) == WAIT_OBJECT_0;
}

unsigned long Exchange(const CServerModule& module, IHttpRaw& httpRaw, const std::wstring& url)
{
    CImportPatch connected(module.Handle(), "InternetGetConnectedState", Connected);
    unsigned long status = REQ_STATUS_FAILED;
    EXPECT_EQ(httpRaw.PostRequest(url.c_str(), L"a=1"), S_OK);
    SetEvent(g_hPosted);
    const ULONGLONG start = GetTickCount64();
    do
    {
        EXPECT_EQ(httpRaw.GetRequestStatus(&status), S_OK);
        Sleep(1);
    } while ((status == REQ_STATUS_SENDING || status == REQ_STATUS_RECEIVING) &&
             GetTickCount64() - start < kPatienceMs);
    return status;
}

// A worker's own reference may go a moment after the host's.
bool AwaitUnloaded()
{
    const ULONGLONG start = GetTickCount64();
    while (GetModuleHandleW(L"kvHttp.dll") != nullptr)
    {
        if (GetTickCount64() - start >= kPatienceMs)
        {
            return false;
        }
        Sleep(1);
    }
    return true;
}

// The lowest index for thread-local values that is free. A process has 1,088 of them.
DWORD FreeTlsIndex()
{
    const DWORD dwIndex = TlsAlloc();
    TlsFree(dwIndex);
    return dwIndex;
}

// Whatever a load kept for good would end a host some day.
TEST(ModuleLoadTest, CanBeRepeatedForEver)
{
    if (KVHTTP_COUNTS_LINES)
    {
        GTEST_SKIP() << "each time that the module is unloaded its counts are written, which takes long";
    }
    constexpr int kLoads = 1200;  // more than there are indexes
    constexpr int kUseEvery = 10;
    constexpr int kExchangeEvery = 100;
    CLoopbackServer server([](const CLoopbackRequest&, CLoopbackConnection& connection)
                           { connection.Send(MakeAnswer(200, "ok")); });
    // A host has the platform's libraries loaded anyway; without them each load takes ten times as long.
    for (const wchar_t* const pszLibrary : {L"oleaut32.dll", L"shell32.dll", L"wininet.dll"})
    {
        ASSERT_NE(LoadLibraryW(pszLibrary), nullptr) << pszLibrary;
    }
    g_hPosted = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    int handles = 0;
    DWORD dwTlsIndex = 0;
    for (int load = 1; load <= kLoads; ++load)
    {
        SCOPED_TRACE(load);
        CServerModule module;
        ASSERT_NE(module.Handle(), nullptr) << "error " << GetLastError();
        if (load % kUseEvery == 0)
        {
            IHttpRaw* const pHttpRaw = module.CreateHttpRaw();
            ASSERT_NE(pHttpRaw, nullptr);
            if (load % kExchangeEvery == 0)
            {
                ASSERT_EQ(Exchange(module, *pHttpRaw, server.Url(L"/form")), REQ_STATUS_DONE);
            }
            EXPECT_EQ(pHttpRaw->Release(), 0u);
        }
        EXPECT_EQ(module.CanUnloadNow(), S_OK);
        module.Unload();
        ASSERT_TRUE(AwaitUnloaded());
        // What the platform keeps for the life of the process is there after the first exchange.
        if (load == kExchangeEvery)
        {
            handles = CountHandles();
            dwTlsIndex = FreeTlsIndex();
        }
    }
    EXPECT_LT(CountHandles(), handles + kLoads / kExchangeEvery) << "handles stay behind";
    EXPECT_EQ(FreeTlsIndex(), dwTlsIndex) << "indexes stay behind";
    CloseHandle(g_hPosted);
}

}  // namespace
