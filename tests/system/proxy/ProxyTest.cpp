// A form goes out the way the user's default browser would reach the network, through a real proxy or past
// it. Started by proxy_run.py, which runs the proxy and looks into its log.
#include <gmock/gmock.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

#include "support/loopback/LoopbackServer.h"
#include "system/HttpRawHost.h"
#include "system/proxy/ProxyUser.h"

namespace
{

using testing::HasSubstr;

// Of the proxy that listens on 127.0.0.1.
unsigned short ProxyPort()
{
    const char* const port = std::getenv("KVHTTP_PROXY_PORT");
    if (port == nullptr)
    {
        std::printf("ProxyTest: KVHTTP_PROXY_PORT is not set; proxy_run.py starts this program\n");
        std::fflush(stdout);
        std::_Exit(3);
    }
    return static_cast<unsigned short>(std::atoi(port));
}

std::string Replaced(std::string text, const std::string& what, const std::string& with)
{
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + with.size()))
    {
        text.replace(at, what.size(), with);
    }
    return text;
}

std::string ManualPrefs(unsigned short port)
{
    return "user_pref(\"network.proxy.http\", \"127.0.0.1\");\n"
           "user_pref(\"network.proxy.http_port\", " +
           std::to_string(port) +
           ");\n"
           "user_pref(\"network.proxy.type\", 1);\n";
}

class ProxyTest : public testing::Test
{
protected:
    void PostThroughProxy()
    {
        Post();
        EXPECT_THAT(m_request.Header("Via"), HasSubstr("kvhttpproxy"));
    }

    void PostPastProxy()
    {
        Post();
        EXPECT_EQ(m_request.CountHeaders("Via"), 0u);
    }

    static std::string ReadFixture(const std::string& name)
    {
        wchar_t szPath[MAX_PATH] = {};
        GetModuleFileNameW(nullptr, szPath, MAX_PATH);
        std::ifstream file(std::filesystem::path(szPath).parent_path() / "data" / "mozilla" / name,
                           std::ios::binary);
        EXPECT_TRUE(file.is_open()) << name;
        return std::string(std::istreambuf_iterator<char>(file), {});
    }

    const unsigned short m_port = ProxyPort();
    CProxyUser m_user;

private:
    void Post()
    {
        CLoopbackServer server([](const CLoopbackRequest&, CLoopbackConnection& connection)
                               { connection.Send(MakeAnswer(200, "answer")); });
        CHttpRawHost host;
        EXPECT_EQ(host.PostAndAwaitEnd(server.Url(L"/form"), L"name=value"), Status{REQ_STATUS_DONE});
        EXPECT_EQ(host.TakeAnswer(), L"answer");
        ASSERT_EQ(server.Requests().size(), 1u);
        m_request = server.Requests()[0];
        EXPECT_EQ(m_request.strMethod, "POST");
        EXPECT_EQ(m_request.strTarget, "/form");
        EXPECT_EQ(m_request.strBody, "name=value");
    }

    CLoopbackRequest m_request;
};

TEST_F(ProxyTest, FirefoxWithAManualProxyGoesThroughIt)
{
    m_user.BrowseWithFirefox(ManualPrefs(m_port));
    PostThroughProxy();
}

TEST_F(ProxyTest, FirefoxWithoutAProxyGoesPastTheSystems)
{
    m_user.SetSystemProxy(m_port);
    m_user.BrowseWithFirefox("user_pref(\"network.proxy.type\", 0);\n");
    PostPastProxy();
}

TEST_F(ProxyTest, FirefoxWithTheSystemsProxyGoesThroughIt)
{
    m_user.SetSystemProxy(m_port);
    m_user.BrowseWithFirefox("user_pref(\"network.proxy.type\", 5);\n");
    PostThroughProxy();
}

TEST_F(ProxyTest, FirefoxWithoutProxyPreferencesGoesThroughTheSystems)
{
    m_user.SetSystemProxy(m_port);
    m_user.BrowseWithFirefox("user_pref(\"browser.startup.page\", 0);\n");
    PostThroughProxy();
}

TEST_F(ProxyTest, SystemBrowserGoesThroughTheSystemsProxy)
{
    m_user.SetSystemProxy(m_port);
    m_user.BrowseWithSystemBrowser();
    PostThroughProxy();
}

TEST_F(ProxyTest, SystemBrowserWithoutAProxyGoesDirect)
{
    m_user.BrowseWithSystemBrowser();
    PostPastProxy();
}

TEST_F(ProxyTest, NoBrowserGoesThroughTheSystemsProxy)
{
    m_user.SetSystemProxy(m_port);
    PostThroughProxy();
}

TEST_F(ProxyTest, RealPreferencesOfFirefoxGoThroughTheirProxy)
{
    m_user.BrowseWithFirefox(Replaced(ReadFixture("alpha/prefs.js"), "8899", std::to_string(m_port)));
    PostThroughProxy();
}

}  // namespace
