// A form goes out the way the user's default browser would reach the network, through a real proxy or past
// it. Started by proxy_run.py, which runs the proxy and looks into its log.
#include <gmock/gmock.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "support/loopback/LoopbackServer.h"
#include "support/WineVersion.h"
#include "system/HttpRawHost.h"
#include "system/ModuleTrace.h"
#include "system/proxy/ProxyUser.h"

namespace
{

using testing::HasSubstr;

using Records = std::vector<std::string>;

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

// Drops the lines that contain one of the texts.
std::string WithoutLines(const std::string& text, const std::vector<std::string>& unwanted)
{
    std::string kept;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);)
    {
        if (std::none_of(unwanted.begin(), unwanted.end(),
                         [&line](const std::string& part) { return line.find(part) != std::string::npos; }))
        {
            kept += line + "\n";
        }
    }
    return kept;
}

void AnswerForm(const CLoopbackRequest&, CLoopbackConnection& connection)
{
    connection.Send(MakeAnswer(200, "answer"));
}

// A port of 127.0.0.1 that nobody listens on, and that nobody else gets meanwhile.
class CClosedPort
{
public:
    CClosedPort() : m_socket(socket(AF_INET, SOCK_STREAM, IPPROTO_TCP))
    {
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        EXPECT_EQ(bind(m_socket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
        int length = sizeof(address);
        EXPECT_EQ(getsockname(m_socket, reinterpret_cast<sockaddr*>(&address), &length), 0);
        m_port = ntohs(address.sin_port);
    }
    ~CClosedPort() { closesocket(m_socket); }
    CClosedPort(const CClosedPort&) = delete;
    CClosedPort& operator=(const CClosedPort&) = delete;

    unsigned short Port() const { return m_port; }

private:
    SOCKET m_socket;
    unsigned short m_port = 0;
};

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
    ProxyTest()
    {
        WSADATA data = {};
        EXPECT_EQ(WSAStartup(MAKEWORD(2, 2), &data), 0);
    }
    ~ProxyTest() override { WSACleanup(); }

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

    // What a real Firefox wrote, with the port of the proxy.
    std::string RealPrefs() const
    {
        wchar_t szPath[MAX_PATH] = {};
        GetModuleFileNameW(nullptr, szPath, MAX_PATH);
        std::ifstream file(std::filesystem::path(szPath).parent_path() / "data/mozilla/alpha/prefs.js",
                           std::ios::binary);
        const std::string text(std::istreambuf_iterator<char>(file), {});
        EXPECT_NE(text.find("8899"), std::string::npos);
        return Replaced(text, "8899", std::to_string(m_port));
    }

    // The host's thread begins with opening the session: discovery, then what comes of it.
    static void ExpectOpensSession(const CModuleTrace& trace, const Records& discovery, const Records& then)
    {
        Records expected = {"2|--> CHttpSession::OpenInternet(). \n"};
        expected.insert(expected.end(), discovery.begin(), discovery.end());
        expected.insert(expected.end(), then.begin(), then.end());
        expected.push_back("2|<-- CHttpSession::OpenInternet(). \n");
        Records records = trace.OfThisThread();
        records.resize(std::min(records.size(), expected.size()));
        EXPECT_EQ(records, expected);
    }

    // The worker says before it opens the request that there is a proxy; it does not look for one.
    static void ExpectConnectsByProxy(const CModuleTrace& trace)
    {
        const Records expected = {
            "2|--> CHttpRequest::UpdateRequestStatus \n", "2| emStatus=5,\n",
            "2|<-- CHttpRequest::UpdateRequestStatus \n",
            "2| CHttpRequest::CheckInternetConnection: Use Proxy to connect to server.\n,\n",
            "2|--> CHttpRequest::OpenRequest\n \n"};
        Records records = trace.OfWorkers();
        records.resize(std::min(records.size(), expected.size()));
        EXPECT_EQ(records, expected);
    }

    const unsigned short m_port = ProxyPort();
    CProxyUser m_user;

private:
    void Post()
    {
        CLoopbackServer server(AnswerForm);
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
    // Without the proxies for other protocols: see the next test. The origin's 127.0.0.1 is among the hosts
    // that Firefox would reach without the proxy, but in a list with commas, which the platform takes for
    // parts of the names.
    m_user.BrowseWithFirefox(WithoutLines(RealPrefs(), {"network.proxy.ssl", "network.proxy.socks"}));
    PostThroughProxy();
}

TEST_F(ProxyTest, RealPreferencesWithSeveralProxiesNameNoHostToWine)
{
    m_user.BrowseWithFirefox(RealPrefs());
    if (!IsWine())
    {
        PostThroughProxy();
        return;
    }
    // Wine parts the entries of a list at blanks only, and takes all behind "http=" for one host.
    CLoopbackServer server(AnswerForm);
    CHttpRawHost host;
    EXPECT_EQ(host.PostAndAwaitEnd(server.Url(L"/form")), Status{REQ_STATUS_FAILED});
    EXPECT_TRUE(server.Requests().empty());
}

TEST_F(ProxyTest, AManualListIsTheSessionsOwnButWineBefore10KeepsItForTheUser)
{
    m_user.BrowseWithFirefox(ManualPrefs(m_port));
    PostThroughProxy();
    // Before version 10 Wine has no settings of a session: it writes those that one is given into the user's.
    const bool bKept = IsWine() && WineVersion() < 10;
    EXPECT_EQ(m_user.SystemProxy(), bKept ? L"http=127.0.0.1:" + std::to_wstring(m_port) + L";" : L"");
}

TEST_F(ProxyTest, AProxyThatIsNotThereFailsTheRequest)
{
    const CClosedPort closed;
    const struct
    {
        const char* label;
        bool bFirefox;
    } rows[] = {{"Firefox's", true}, {"the system's", false}};
    for (const auto& row : rows)
    {
        SCOPED_TRACE(row.label);
        if (row.bFirefox)
        {
            m_user.BrowseWithFirefox(ManualPrefs(closed.Port()));
        }
        else
        {
            m_user.BrowseWithSystemBrowser();
            m_user.SetSystemProxy(closed.Port());
        }
        CLoopbackServer server(AnswerForm);
        CHttpRawHost host;
        EXPECT_EQ(host.PostAndAwaitEnd(server.Url(L"/form")), Status{REQ_STATUS_FAILED});
        EXPECT_EQ(host.TakeAnswer(), std::nullopt);
        EXPECT_TRUE(server.Requests().empty()) << "the request has gone past its proxy";
    }
}

TEST_F(ProxyTest, TheTraceShowsHowFirefoxsProxyWasFound)
{
    m_user.BrowseWithFirefox(ManualPrefs(m_port));
    const CModuleTrace trace;
    PostThroughProxy();
    const std::string list = "http=127.0.0.1:" + std::to_string(m_port) + ";";
    const Records discovery = {
        "2|--> CProxyInfo::GetDefaultBrowser(). \n",
        "2| CProxyInfo::GetDefaultBrowser--this is Vista and try to get default choice,\n",
        "2| FirefoxURL-308046B0AF4A39CB\\shell\\open\\command,\n",
        "2|<-- CProxyInfo::GetDefaultBrowser(). \n",
        "2| CProxyInfo::GetProxyInfo: Default Browser is Firefox/NS4/NS6/NS8.\n,\n",
        "2| CProxyInfo::GetNSProxyInfo--network.proxy.type,\n",
        "2| ProxyInfo: autourl-, manual-" + list + ", bypass-, type-2,\n"};
    ExpectOpensSession(trace, discovery, {"2| lpszProxyServer is,\n", "2| " + list + ",\n"});
    ExpectConnectsByProxy(trace);
}

TEST_F(ProxyTest, TheTraceShowsThatFirefoxUsesTheSystemsProxy)
{
    m_user.SetSystemProxy(m_port);
    m_user.BrowseWithFirefox("user_pref(\"network.proxy.type\", 5);\n");
    const CModuleTrace trace;
    PostThroughProxy();
    const Records discovery = {
        "2|--> CProxyInfo::GetDefaultBrowser(). \n",
        "2| CProxyInfo::GetDefaultBrowser--this is Vista and try to get default choice,\n",
        "2| FirefoxURL-308046B0AF4A39CB\\shell\\open\\command,\n",
        "2|<-- CProxyInfo::GetDefaultBrowser(). \n",
        "2| CProxyInfo::GetProxyInfo: Default Browser is Firefox/NS4/NS6/NS8.\n,\n",
        "2| CProxyInfo::GetNSProxyInfo--network.proxy.type,\n",
        "2| ProxyInfo: autourl-, manual-, bypass-, type-2,\n"};
    ExpectOpensSession(
        trace, discovery,
        {"2| CHttpSession::OpenInternet: Browser is Firefox and Proxy type is use default proxy.,\n"});
    ExpectConnectsByProxy(trace);
}

TEST_F(ProxyTest, TheTraceShowsHowTheSystemBrowsersProxyWasFound)
{
    m_user.SetSystemProxy(m_port);
    m_user.BrowseWithSystemBrowser();
    const CModuleTrace trace;
    PostThroughProxy();
    // The list is only reported here, and in this form: the session takes the settings as they are.
    const Records discovery = {
        "2|--> CProxyInfo::GetDefaultBrowser(). \n",
        "2| CProxyInfo::GetDefaultBrowser--this is Vista and try to get default choice,\n",
        "2| IE.HTTP\\shell\\open\\command,\n",
        "2|<-- CProxyInfo::GetDefaultBrowser(). \n",
        "2| CProxyInfo::GetProxyInfo: Default Browser is IE.\n,\n",
        "2| ProxyInfo: autourl-, manual-http=\\127.0.0.1:" + std::to_string(m_port) + ", bypass-, type-1,\n"};
    ExpectOpensSession(trace, discovery, {});
    ExpectConnectsByProxy(trace);
}

}  // namespace
