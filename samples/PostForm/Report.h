// Shows how an exchange goes on.
#pragma once

#include "kvHttp/Client.h"

// Prints each change of the status; with a file, the bytes that have arrived as well.
class CReport
{
public:
    void operator()(const kvHttp::Progress& progress);

private:
    unsigned long m_nShown = REQ_STATUS_IDLE;
    unsigned long long m_nNextBytes = kStep;

    static constexpr unsigned long long kStep = 1024 * 1024;
};

const wchar_t* NameOf(unsigned long nStatus);
