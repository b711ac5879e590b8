// Whatever a server or a preference file says, only the file that the host has named is written, and no local
// file is taken for an answer.
#include <winsock2.h>

#include <windows.h>

#include <gmock/gmock.h>

#include <cstdio>
#include <string>
#include <vector>

#include "support/CallText.h"
#include "support/ImportPatch.h"
#include "support/loopback/LoopbackServer.h"
#include "support/Mutex.h"
#include "system/answers/TargetFolder.h"
#include "system/HttpRawHost.h"
#include "system/proxy/ProxyUser.h"

namespace
{

using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

using FopenProc = errno_t __cdecl(FILE**, const char*, const char*);

CMutex g_mutex;
std::vector<std::wstring> g_touched;
std::vector<std::string> g_modes;
decltype(&CreateFileW) g_pfnCreate = nullptr;
decltype(&DeleteFileW) g_pfnDelete = nullptr;
FopenProc* g_pfnOpen = nullptr;

HANDLE WINAPI RecordingCreate(LPCWSTR pszPath, DWORD dwAccess, DWORD dwShare, LPSECURITY_ATTRIBUTES pSecurity,
                              DWORD dwHow, DWORD dwFlags, HANDLE hTemplate)
{
    {
        const std::lock_guard lock(g_mutex);
        g_touched.emplace_back(pszPath);
    }
    return g_pfnCreate(pszPath, dwAccess, dwShare, pSecurity, dwHow, dwFlags, hTemplate);
}

BOOL WINAPI RecordingDelete(LPCWSTR pszPath)
{
    {
        const std::lock_guard lock(g_mutex);
        g_touched.emplace_back(pszPath);
    }
    return g_pfnDelete(pszPath);
}

errno_t __cdecl RecordingOpen(FILE** ppFile, const char* pszPath, const char* pszMode)
{
    {
        const std::lock_guard lock(g_mutex);
        g_modes.emplace_back(pszMode);
    }
    return g_pfnOpen(ppFile, pszPath, pszMode);
}

class ServerReachTest : public testing::Test
{
protected:
    ServerReachTest()
    {
        g_pfnCreate = m_imports.Add("CreateFileW", RecordingCreate);
        g_pfnDelete = m_imports.Add("DeleteFileW", RecordingDelete);
        g_pfnOpen = m_imports.Add("fopen_s", RecordingOpen);
        m_folder.MakeFolder(L"current");
        m_folder.MakeFolder(L"target");
        m_folder.Write(L"secret", "local secret");
        SetCurrentDirectoryW((m_folder.Path() + L"current").c_str());
    }

    std::string Narrow(const std::wstring& name) const { return ToUtf8((m_folder.Path() + name).c_str()); }

    CTargetFolder m_folder;
    std::string m_answer;
    // The root answers as the test says; whoever is sent elsewhere on this server ends there.
    CLoopbackServer m_server{
        [this](const CLoopbackRequest& request, CLoopbackConnection& connection)
        { connection.Send(request.strTarget == "/" ? m_answer : MakeAnswer(200, "elsewhere")); }};
    CImportPatches m_imports{CHttpRawHost::Module()};
};

TEST_F(ServerReachTest, HeadersNameNoFile)
{
    const std::string bad = Narrow(L"bad");
    const std::string rows[] = {
        "Content-Disposition: attachment; filename=\"bad\"\r\n",
        "Content-Disposition: attachment; filename=\"..\\..\\bad\"\r\n",
        "Content-Disposition: attachment; filename*=UTF-8''" + bad + "\r\n",
        "Content-Location: " + bad + "\r\n",
        "Location: " + bad + "\r\n",
        "Link: <" + bad + ">; rel=preload\r\n",
        "Refresh: 0; url=file:///" + bad + "\r\n",
        "Content-Type: application/x-msdownload; name=\"bad.exe\"\r\n",
        "Content-Encoding: ../bad\r\nTransfer-Encoding: identity\r\n",
    };
    CHttpRawHost host;
    const std::wstring target = m_folder.Path() + L"target\\file";
    for (const std::string& row : rows)
    {
        SCOPED_TRACE(row);
        g_touched.clear();
        m_answer = MakeAnswer(200, "the answer", row);
        host->SetDownloadFile(target.c_str());
        EXPECT_EQ(host.PostAndAwaitEnd(m_server.Url(L"/")), Status{REQ_STATUS_DONE});
        EXPECT_EQ(m_folder.Files(),
                  (FileContents{{L"secret", "local secret"}, {L"target\\file", "the answer"}}));
        EXPECT_THAT(g_touched, ElementsAre(target));

        g_touched.clear();
        host->SetDownloadFile(L"");
        EXPECT_EQ(host.PostAndAwaitEnd(m_server.Url(L"/")), Status{REQ_STATUS_DONE});
        EXPECT_THAT(g_touched, IsEmpty());
    }
    EXPECT_EQ(m_folder.Files(), (FileContents{{L"secret", "local secret"}, {L"target\\file", "the answer"}}));
}

TEST_F(ServerReachTest, NoRedirectReadsALocalFile)
{
    const std::string secret = Narrow(L"secret");
    const std::string rows[] = {"file:///" + secret, "file://localhost/" + secret,
                                "file:" + secret,    secret,
                                "\\\\.\\" + secret,  "res://" + secret,
                                "about:blank",       "javascript:1"};
    CHttpRawHost host;
    for (const std::string& row : rows)
    {
        for (const int code : {301, 302, 303, 307})
        {
            SCOPED_TRACE(row + " " + std::to_string(code));
            g_touched.clear();
            m_answer = MakeAnswer(code, "moved", "Location: " + row + "\r\n");
            host->SetTimeout(5);
            const Status status = host.PostAndAwaitEnd(m_server.Url(L"/"));
            EXPECT_NE(status, Status{REQ_STATUS_SENDING});
            EXPECT_THAT(host.TakeAnswer().value_or(L""), testing::Not(testing::HasSubstr(L"local")));
            EXPECT_THAT(g_touched, IsEmpty());
        }
    }
}

TEST_F(ServerReachTest, PreferencesAreOnlyRead)
{
    const CProxyUser user;
    user.BrowseWithFirefox(
        "user_pref(\"network.proxy.type\", 2);\n"
        "user_pref(\"network.proxy.autoconfig_url\", \"file:///" +
        Narrow(L"bad") + "\");\n");
    m_answer = MakeAnswer(200, "the answer");
    {
        CHttpRawHost host;
        host.PostAndAwaitEnd(m_server.Url(L"/"));
    }
    EXPECT_THAT(g_modes, Contains(StartsWith("r")));
    EXPECT_THAT(g_modes, Each(testing::AnyOf("r", "rb")));
    EXPECT_THAT(g_touched, IsEmpty());
    EXPECT_EQ(m_folder.Files(), (FileContents{{L"secret", "local secret"}}));
}

}  // namespace
