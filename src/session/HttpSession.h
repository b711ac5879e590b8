// The one Internet session of a component, shared by all its requests. It is opened at the first send
// the way the user's default browser would reach the network, and stays open until the component is
// destroyed; a change of the settings takes effect for sessions opened after it. All calls come from the
// component's thread; the worker thread only uses the handle.
#pragma once

#include <windows.h>
#include <wininet.h>

class CHttpSession
{
public:
    CHttpSession() = default;
    // Closes the session.
    virtual ~CHttpSession();
    CHttpSession(const CHttpSession&) = delete;
    CHttpSession& operator=(const CHttpSession&) = delete;

    // Finds out the default browser's proxy settings and opens the session with them; does nothing when
    // it is open. Always returns 0: a session that could not be opened leaves the handle null, and the
    // requests made on it fail.
    int OpenInternet();

    // Closes the handle if it is open.
    void DisConnect();

    // Gives the session a configuration script, or a fixed proxy list with its bypass list (an empty one
    // becomes "local"). A null text is traced and does nothing; a failure is traced. Intended: with a null
    // handle, after a session that could not be opened, the settings go to the user's own connection, which
    // is then read again.
    static void SetProxyAutoConfigURLFlag(HINTERNET hInternet, const wchar_t* lpszAutoConfigURL);
    static void SetManualFlag(HINTERNET hInternet, const wchar_t* lpszProxyServer, const wchar_t* lpszBypass);

    // Null while no session is open. Owned by this object.
    HINTERNET GetHandle() const { return m_hInternet; }

    // Whether a proxy or a configuration script was found when the session was last opened.
    bool UsesProxy() const { return m_bUsesProxy; }

private:
    HINTERNET m_hInternet = nullptr;
    bool m_bUsesProxy = false;
};
