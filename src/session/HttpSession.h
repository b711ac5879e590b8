// The one Internet session of a component, shared by all its requests. It is opened at the first send
// and stays open until the component is destroyed. All calls come from the component's thread; the
// worker thread only uses the handle.
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

    // Opens the session with the system's preconfigured settings; does nothing when it is open. Always
    // returns 0: a session that could not be opened leaves the handle null, and the requests made on
    // it fail.
    int OpenInternet();

    // Closes the handle if it is open.
    void DisConnect();

    // Null while no session is open. Owned by this object.
    HINTERNET GetHandle() const { return m_hInternet; }

private:
    HINTERNET m_hInternet = nullptr;
};
