// How the built module opens its session for the types of Firefox's proxy that the tests against a real proxy
// leave out, from the user's profile to the platform's calls.
#include <algorithm>

#include "module/HttpRawTest.h"
#include "support/CallText.h"
#include "system/proxy/ProxyUser.h"

using testing::ElementsAre;

namespace
{

CJournal* g_pJournal = nullptr;
CScriptedWinInet* g_pWinInet = nullptr;

std::string OptionText(const INTERNET_PER_CONN_OPTIONW& option)
{
    return std::to_string(option.dwOption) + "=" +
           (option.dwOption == INTERNET_PER_CONN_FLAGS ? std::to_string(option.Value.dwValue)
                                                       : Quoted(option.Value.pszValue));
}

// Writes a session's connection options out in full.
BOOL WINAPI SetOption(HINTERNET handle, DWORD dwOption, LPVOID buffer, DWORD cb)
{
    if (dwOption != INTERNET_OPTION_PER_CONNECTION_OPTION)
    {
        return g_pWinInet->SetOption(handle, dwOption, buffer, cb);
    }
    const auto& list = *static_cast<const INTERNET_PER_CONN_OPTION_LISTW*>(buffer);
    std::string text = "options";
    for (DWORD index = 0; index < list.dwOptionCount; ++index)
    {
        text += " " + OptionText(list.pOptions[index]);
    }
    g_pJournal->Add(CALL_NET, text);
    return TRUE;
}

class FirefoxSessionTest : public HttpRawTest
{
protected:
    FirefoxSessionTest()
    {
        g_pJournal = &m_journal;
        g_pWinInet = &m_winInet;
        m_system.m_bHasSettings = true;
        m_pModule->Imports().Add("InternetSetOptionW", SetOption);
    }
    ~FirefoxSessionTest() override { ReleaseComponent(); }

    // What a send does until it has opened the session.
    Texts CallsFor(const std::string& prefs)
    {
        m_user.BrowseWithFirefox(prefs);
        Post();
        Texts calls = Net();
        calls.erase(std::find_if(calls.begin(), calls.end(),
                                 [](const std::string& call)
                                 { return call.starts_with("InternetGetConnectedState"); }),
                    calls.end());
        return calls;
    }

    static std::string Open(const std::string& mode)
    {
        return "InternetOpenW('Brixo Kestrin Desktop Http Agent', " + mode + ", 0)";
    }

    CProxyUser m_user;
};

TEST_F(FirefoxSessionTest, Type2SetsTheScriptOnASessionWithTheSystemsSettings)
{
    EXPECT_THAT(CallsFor("user_pref(\"network.proxy.type\", 2);\n"
                         "user_pref(\"network.proxy.autoconfig_url\", \"file:///C:/p.pac\");\n"),
                ElementsAre(Open("0, null, null"), "options 4='file://C:/p.pac' 1=4"));
}

TEST_F(FirefoxSessionTest, Type3HasAnEmptyProxyList)
{
    EXPECT_THAT(CallsFor("user_pref(\"network.proxy.type\", 3);\n"),
                ElementsAre(Open("3, '', ''"), "options 2='' 3='local' 1=3"));
}

TEST_F(FirefoxSessionTest, Type4HasTheSystemsSettings)
{
    EXPECT_THAT(CallsFor("user_pref(\"network.proxy.type\", 4);\n"), ElementsAre(Open("0, null, null")));
}

}  // namespace
