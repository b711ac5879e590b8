#include <gmock/gmock.h>

#include "session/HttpSession.h"
#include "support/RecordedTrace.h"
#include "support/ScriptedWinInet.h"

namespace
{

using testing::ElementsAre;
using testing::IsEmpty;

class SessionOptionsTest : public testing::Test
{
protected:
    SessionOptionsTest()
    {
        m_winInet.Attach(m_imports);
        m_hSession = InternetOpenW(L"test", INTERNET_OPEN_TYPE_DIRECT, nullptr, nullptr, 0);
        m_journal.Clear();
    }
    ~SessionOptionsTest() override { InternetCloseHandle(m_hSession); }

    CRecordedTrace m_trace;
    CJournal m_journal;
    CScriptedWinInet m_winInet{m_journal};
    CImportPatches m_imports;
    HINTERNET m_hSession = nullptr;
};

TEST_F(SessionOptionsTest, ScriptIsSetWithItsFlags)
{
    CHttpSession::SetProxyAutoConfigURLFlag(m_hSession, L"http://host/proxy.pac");
    EXPECT_THAT(
        m_journal.Texts(CALL_NET),
        ElementsAre(
            "InternetSetOptionW(session1, 75, size 32, null, error 0: 4='http://host/proxy.pac' 1=4, 32)"));
    EXPECT_THAT(m_trace.m_records,
                ElementsAre(Progress("Firefox autoconfig script:"), Progress("http://host/proxy.pac")));
}

TEST_F(SessionOptionsTest, ScriptIsTracedBeforeItIsSet)
{
    m_journal.On("InternetSetOptionW", 1, [this] { m_trace.m_records.push_back("set"); });
    CHttpSession::SetProxyAutoConfigURLFlag(m_hSession, L"u");
    EXPECT_THAT(m_trace.m_records, ElementsAre(Progress("Firefox autoconfig script:"), Progress("u"), "set"));
}

TEST_F(SessionOptionsTest, EmptyScriptIsSetToo)
{
    CHttpSession::SetProxyAutoConfigURLFlag(m_hSession, L"");
    EXPECT_THAT(m_journal.Texts(CALL_NET),
                ElementsAre("InternetSetOptionW(session1, 75, size 32, null, error 0: 4='' 1=4, 32)"));
}

TEST_F(SessionOptionsTest, MissingScriptIsTracedAndNothingIsSet)
{
    CHttpSession::SetProxyAutoConfigURLFlag(nullptr, nullptr);
    EXPECT_THAT(m_journal.Texts(CALL_NET), IsEmpty());
    EXPECT_THAT(m_trace.m_records,
                ElementsAre(Progress("CHttpSession::SetProxyAutoConfigURLFlag: input para is NULL!\n")));
}

TEST_F(SessionOptionsTest, FailureToSetTheScriptIsTracedWithItsErrorInHexadecimal)
{
    m_winInet.m_setOptions.Always(12009);
    CHttpSession::SetProxyAutoConfigURLFlag(m_hSession, L"u");
    EXPECT_THAT(m_trace.m_records, ElementsAre(Progress("Firefox autoconfig script:"), Progress("u"),
                                               Progress("SetProxyAutoConfigURLFlag: Error=0X2ee9")));
}

TEST_F(SessionOptionsTest, NullHandleIsToldToReadItsSettingsAgainAfterTheScript)
{
    CHttpSession::SetProxyAutoConfigURLFlag(nullptr, L"u");
    EXPECT_THAT(m_journal.Texts(CALL_NET),
                ElementsAre("InternetSetOptionW(null, 75, size 32, null, error 0: 4='u' 1=4, 32)",
                            "InternetSetOptionW(null, 37, null, 0)"));
}

TEST_F(SessionOptionsTest, NullHandleIsToldToReadItsSettingsAgainAfterTheScriptEvenWhenThatFailed)
{
    m_winInet.m_setOptions.Always(12009);
    CHttpSession::SetProxyAutoConfigURLFlag(nullptr, L"u");
    EXPECT_THAT(m_journal.Texts(CALL_NET),
                ElementsAre("InternetSetOptionW(null, 75, size 32, null, error 0: 4='u' 1=4, 32)",
                            "InternetSetOptionW(null, 37, null, 0)"));
}

TEST_F(SessionOptionsTest, ProxyListIsSetWithItsBypassListAndFlags)
{
    CHttpSession::SetManualFlag(m_hSession, L"http=p:1;", L"a;b");
    EXPECT_THAT(
        m_journal.Texts(CALL_NET),
        ElementsAre(
            "InternetSetOptionW(session1, 75, size 32, null, error 0: 2='http=p:1;' 3='a;b' 1=3, 32)"));
    EXPECT_THAT(m_trace.m_records, ElementsAre(Progress("lpszProxyServer is"), Progress("http=p:1;")));
}

TEST_F(SessionOptionsTest, ProxyListIsTracedBeforeItIsSet)
{
    m_journal.On("InternetSetOptionW", 1, [this] { m_trace.m_records.push_back("set"); });
    CHttpSession::SetManualFlag(m_hSession, L"p", L"b");
    EXPECT_THAT(m_trace.m_records, ElementsAre(Progress("lpszProxyServer is"), Progress("p"), "set"));
}

TEST_F(SessionOptionsTest, EmptyBypassListBecomesLocal)
{
    CHttpSession::SetManualFlag(m_hSession, L"", L"");
    EXPECT_THAT(
        m_journal.Texts(CALL_NET),
        ElementsAre("InternetSetOptionW(session1, 75, size 32, null, error 0: 2='' 3='local' 1=3, 32)"));
}

TEST_F(SessionOptionsTest, MissingListIsTracedAndNothingIsSet)
{
    CHttpSession::SetManualFlag(nullptr, nullptr, L"b");
    CHttpSession::SetManualFlag(nullptr, L"p", nullptr);
    EXPECT_THAT(m_journal.Texts(CALL_NET), IsEmpty());
    EXPECT_THAT(m_trace.m_records, ElementsAre(Progress("CHttpGet::SetManualFlag: input para is NULL!\n"),
                                               Progress("CHttpGet::SetManualFlag: input para is NULL!\n")));
}

TEST_F(SessionOptionsTest, FailureToSetTheListIsTracedWithoutItsError)
{
    m_winInet.m_setOptions.Always(12009);
    CHttpSession::SetManualFlag(m_hSession, L"p", L"b");
    EXPECT_THAT(m_trace.m_records,
                ElementsAre(Progress("lpszProxyServer is"), Progress("p"), Progress("SetManualFlag: Error")));
}

TEST_F(SessionOptionsTest, NullHandleIsToldToReadItsSettingsAgainAfterTheListEvenWhenThatFailed)
{
    m_winInet.m_setOptions.Always(12009);
    CHttpSession::SetManualFlag(nullptr, L"p", L"b");
    EXPECT_THAT(m_journal.Texts(CALL_NET),
                ElementsAre("InternetSetOptionW(null, 75, size 32, null, error 0: 2='p' 3='b' 1=3, 32)",
                            "InternetSetOptionW(null, 37, null, 0)"));
}

}  // namespace
