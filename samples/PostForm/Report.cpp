#include "Report.h"

#include <cwchar>
#include <string>

#include "Output.h"

namespace
{

// The time since the exchange began, at the head of each line.
void PrintTimed(const kvHttp::Progress& progress, const std::wstring& text)
{
    wchar_t szTime[40] = {};
    std::swprintf(szTime, sizeof(szTime) / sizeof(szTime[0]), L"%5llu.%03llu s  ", progress.nElapsedMs / 1000,
                  progress.nElapsedMs % 1000);
    Print(szTime + text + L"\n");
}

}  // namespace

void CReport::operator()(const kvHttp::Progress& progress)
{
    if (progress.nStatus != m_nShown)
    {
        PrintTimed(progress,
                   L"status " + std::to_wstring(progress.nStatus) + L"  " + NameOf(progress.nStatus));
        m_nShown = progress.nStatus;
    }
    if (progress.nStatus == REQ_STATUS_RECEIVING && progress.nFileBytes >= m_nNextBytes)
    {
        PrintTimed(progress, L"received  " + std::to_wstring(progress.nFileBytes) + L" bytes so far");
        m_nNextBytes = progress.nFileBytes + kStep;
    }
}

const wchar_t* NameOf(unsigned long nStatus)
{
    switch (nStatus)
    {
        case REQ_STATUS_HTTP_ERROR:
            return L"REQ_STATUS_HTTP_ERROR";
        case REQ_STATUS_IDLE:
            return L"REQ_STATUS_IDLE";
        case REQ_STATUS_FAILED:
            return L"REQ_STATUS_FAILED";
        case REQ_STATUS_NOT_CONNECTED:
            return L"REQ_STATUS_NOT_CONNECTED";
        case REQ_STATUS_SENDING:
            return L"REQ_STATUS_SENDING";
        case REQ_STATUS_RECEIVING:
            return L"REQ_STATUS_RECEIVING";
        case REQ_STATUS_TIMEOUT:
            return L"REQ_STATUS_TIMEOUT";
        case REQ_STATUS_DONE:
            return L"REQ_STATUS_DONE";
        default:
            return L"(a status without a name)";
    }
}
