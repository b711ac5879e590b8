// What a worker does before it opens anything: the record of the proxy that the session uses, and the
// question whether the machine is connected.
#include "module/HttpRawTest.h"
#include "support/TempFolder.h"
#include "support/TestHive.h"

using testing::Contains;
using testing::Not;

namespace
{

constexpr wchar_t kSettings[] = L"Software\\Microsoft\\Windows\\CurrentVersion\\Internet Settings";
const std::string kUsesProxy =
    "2| CHttpRequest::CheckInternetConnection: Use Proxy to connect to server.\n,\n";

class ConnectionCheckTest : public HttpRawTest
{
protected:
    ConnectionCheckTest()
    {
        m_system.m_bHasSettings = true;
        const std::wstring path = m_folder.Write(L"iexplore.exe", "").wstring();
        m_classes.SetText(L"http\\shell\\open\\command", nullptr, L"\"" + path + L"\" %1");
    }
    ~ConnectionCheckTest() override { ReleaseComponent(); }

    CTempFolder m_folder;
    CTestHive m_user;
    CTestHive m_classes;
    CRedirectedKey m_redirectedUser{HKEY_CURRENT_USER, m_user};
    CRedirectedKey m_redirectedClasses{HKEY_CLASSES_ROOT, m_classes};
};

TEST_F(ConnectionCheckTest, ProxyIsTracedAndPresetsTheState)
{
    m_user.SetText(kSettings, L"AutoConfigURL", L"http://h/p.pac");
    StartPost();
    ClearJournal();
    Finish();
    EXPECT_THAT(Net(), Contains("InternetGetConnectedState(4, 0)"));
    const Texts trace = Trace();
    const Texts expected = Join({StatusRecords(5), {kUsesProxy, Enter("CHttpRequest::OpenRequest\n")}});
    ASSERT_GE(trace.size(), expected.size());
    EXPECT_EQ(Texts(trace.begin(), trace.begin() + static_cast<std::ptrdiff_t>(expected.size())), expected);
    EXPECT_EQ(Status(), 9u);
}

TEST_F(ConnectionCheckTest, NoProxyPresetsALocalNetwork)
{
    Post();
    EXPECT_THAT(Net(), Contains("InternetGetConnectedState(2, 0)"));
    EXPECT_THAT(Trace(), Not(Contains(kUsesProxy)));
}

// The line says what the session was opened with, not what the settings have become.
TEST_F(ConnectionCheckTest, SettingsAreFoundOnceWhenTheSessionOpens)
{
    m_user.SetText(kSettings, L"AutoConfigURL", L"http://h/p.pac");
    Post();
    m_user.SetText(kSettings, L"AutoConfigURL", L"");
    ClearJournal();
    Post();
    EXPECT_THAT(Net(), Contains("InternetGetConnectedState(4, 0)"));
    EXPECT_THAT(Trace(), Contains(kUsesProxy));
    EXPECT_THAT(Trace(), Not(Contains(Enter("CProxyInfo::GetDefaultBrowser()."))));
    EXPECT_TRUE(Select(CALL_NET, "InternetOpenW").empty());
}

TEST_F(ConnectionCheckTest, ProxyThatComesLaterIsNotNoticed)
{
    Post();
    m_user.SetText(kSettings, L"AutoConfigURL", L"http://h/p.pac");
    ClearJournal();
    Post();
    EXPECT_THAT(Net(), Contains("InternetGetConnectedState(2, 0)"));
    EXPECT_THAT(Trace(), Not(Contains(kUsesProxy)));
}

TEST_F(ConnectionCheckTest, ProxyDoesNotMakeUpForAMissingConnection)
{
    m_user.SetText(kSettings, L"AutoConfigURL", L"http://h/p.pac");
    m_winInet.m_bConnected = false;
    Post();
    EXPECT_EQ(Status(), 3u);
    EXPECT_THAT(Trace(), Contains(kUsesProxy));
    EXPECT_TRUE(Connects().empty());
}

}  // namespace
