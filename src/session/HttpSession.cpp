#include "session/HttpSession.h"

#include "trace/AutoFunTrace.h"

namespace
{

constexpr wchar_t kUserAgent[] = L"Brixo Kestrin Desktop Http Agent";

}  // namespace

CHttpSession::~CHttpSession()
{
    DisConnect();
}

int CHttpSession::OpenInternet()
{
    const CAutoFunTrace trace("CHttpSession::OpenInternet().");
    if (m_hInternet != nullptr)
    {
        return 0;
    }
    m_hInternet = InternetOpenW(kUserAgent, INTERNET_OPEN_TYPE_PRECONFIG, nullptr, nullptr, 0);
    return 0;
}

void CHttpSession::DisConnect()
{
    const CAutoFunTrace trace("CHttpSession::DisConnect()\n");
    if (m_hInternet != nullptr)
    {
        InternetCloseHandle(m_hInternet);
        m_hInternet = nullptr;
    }
}
