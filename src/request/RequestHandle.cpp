#include "request/RequestHandle.h"

bool CRequestHandle::Open(HINTERNET hRequest)
{
    HINTERNET hClosed = nullptr;
    if (m_handle.compare_exchange_strong(hClosed, hRequest))
    {
        return true;
    }
    InternetCloseHandle(hRequest);
    return false;
}

void CRequestHandle::Close()
{
    HINTERNET hRequest = m_handle;
    if (hRequest != nullptr && hRequest != Abandoned() && m_handle.compare_exchange_strong(hRequest, nullptr))
    {
        InternetCloseHandle(hRequest);
    }
}

void CRequestHandle::Abandon()
{
    const HINTERNET hRequest = m_handle.exchange(Abandoned());
    if (hRequest != nullptr && hRequest != Abandoned())
    {
        InternetCloseHandle(hRequest);
    }
}

void CRequestHandle::Renew()
{
    HINTERNET hAbandoned = Abandoned();
    m_handle.compare_exchange_strong(hAbandoned, nullptr);
}
