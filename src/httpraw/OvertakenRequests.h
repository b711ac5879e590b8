// Keeps each request that a later send has overtaken until its worker has left it, and gives it back for use
// then. Everything is for the owner's thread of the requests.
#pragma once

#include <memory>
#include <vector>

#include "request/HttpRequest.h"

class COvertakenRequests
{
public:
    // Takes *pRequest over and abandons it. False, with nothing changed, when there is no memory.
    bool Keep(std::unique_ptr<CHttpRequest>& pRequest);

    // A request whose worker has left it; null when there is none.
    std::unique_ptr<CHttpRequest> TakeIdle();

    bool IsEmpty() const { return m_requests.empty(); }

    // Waits for the workers, dispatching messages.
    void Clear() { m_requests.clear(); }

private:
    std::vector<std::unique_ptr<CHttpRequest>> m_requests;
};
