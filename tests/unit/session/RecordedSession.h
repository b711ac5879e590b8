// Stands in for the platform's session calls in this test program and keeps them as texts, in their order.
#pragma once

#include <windows.h>
#include <wininet.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "support/ImportPatch.h"

class CRecordedSession
{
public:
    CRecordedSession();
    ~CRecordedSession();
    CRecordedSession(const CRecordedSession&) = delete;
    CRecordedSession& operator=(const CRecordedSession&) = delete;

    // The handle that a session gets.
    static HINTERNET Handle() { return reinterpret_cast<HINTERNET>(INT_PTR{0x5E55}); }

    bool m_bOpens = true;
    DWORD m_dwOptionError = ERROR_SUCCESS;  // what setting the connection options fails with
    std::function<void()> m_onOptions;      // runs, when there is one, while these are being set

    std::vector<std::string> m_calls;

private:
    struct Platform;

    std::vector<std::unique_ptr<CImportPatch>> m_patches;
};
