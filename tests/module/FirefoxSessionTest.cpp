// How the built module opens its session for the types of Firefox's proxy that the tests against a real proxy
// leave out, from the user's profile to the platform's calls.
#include <algorithm>

#include "module/HttpRawTest.h"
#include "system/proxy/ProxyUser.h"

using testing::ElementsAre;

namespace
{

class FirefoxSessionTest : public HttpRawTest
{
protected:
    FirefoxSessionTest() { m_system.m_bHasSettings = true; }
    ~FirefoxSessionTest() override { ReleaseComponent(); }

    // What a send does until it has opened the session.
    Texts CallsFor(const std::string& prefs)
    {
        m_user.BrowseWithFirefox(prefs);
        Post();
        Texts calls = Net();
        calls.erase(std::find_if(calls.begin(), calls.end(), [](const std::string& call)
                                 { return call.starts_with("InternetGetConnectedState"); }),
                    calls.end());
        return calls;
    }

    static std::string Open(const std::string& mode)
    {
        return "InternetOpenW('Brixo Kestrin Desktop Http Agent', " + mode + ", 0)";
    }

    static std::string SetOptions(const std::string& options)
    {
        return "InternetSetOptionW(session1, 75, size 32, null, error 0: " + options + ", 32)";
    }

    CProxyUser m_user;
};

TEST_F(FirefoxSessionTest, Type2SetsTheScriptOnASessionWithTheSystemsSettings)
{
    EXPECT_THAT(CallsFor("user_pref(\"network.proxy.type\", 2);\n"
                         "user_pref(\"network.proxy.autoconfig_url\", \"file:///C:/p.pac\");\n"),
                ElementsAre(Open("0, null, null"), SetOptions("4='file://C:/p.pac' 1=4")));
}

TEST_F(FirefoxSessionTest, Type3HasAnEmptyProxyList)
{
    EXPECT_THAT(CallsFor("user_pref(\"network.proxy.type\", 3);\n"),
                ElementsAre(Open("3, '', ''"), SetOptions("2='' 3='local' 1=3")));
}

TEST_F(FirefoxSessionTest, Type4HasTheSystemsSettings)
{
    EXPECT_THAT(CallsFor("user_pref(\"network.proxy.type\", 4);\n"), ElementsAre(Open("0, null, null")));
}

}  // namespace
