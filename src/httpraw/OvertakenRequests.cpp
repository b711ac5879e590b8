#include "httpraw/OvertakenRequests.h"

#include <algorithm>
#include <new>
#include <utility>

bool COvertakenRequests::Keep(std::unique_ptr<CHttpRequest>& pRequest)
try
{
    m_requests.reserve(m_requests.size() + 1);
    pRequest->Abandon();
    m_requests.push_back(std::move(pRequest));
    return true;
}
catch (const std::bad_alloc&)
{
    return false;
}

std::unique_ptr<CHttpRequest> COvertakenRequests::TakeIdle()
{
    std::unique_ptr<CHttpRequest> pIdle;
    const auto idle = std::find_if(m_requests.begin(), m_requests.end(),
                                   [](const auto& pRequest) { return pRequest->HasLeft(); });
    if (idle != m_requests.end())
    {
        pIdle = std::move(*idle);
        m_requests.erase(idle);
    }
    return pIdle;
}
