// A request of this test program over the scripted platform, with a session that is open.
#pragma once

#include <gmock/gmock.h>

#include <memory>
#include <string>
#include <vector>

#include "request/HttpRequest.h"
#include "support/Hold.h"
#include "support/RecordedTrace.h"
#include "support/ScriptedSystem.h"
#include "support/ScriptedWinInet.h"

class RequestTest : public testing::Test
{
protected:
    RequestTest()
    {
        m_winInet.Attach(m_imports);
        m_system.Attach(m_imports);
        m_trace.Attach(m_imports);
        m_system.m_bThreadsHeld = false;
        m_system.m_dwTick = 1000;
        m_hSession = InternetOpenW(L"test", INTERNET_OPEN_TYPE_DIRECT, nullptr, nullptr, 0);
        m_pRequest = std::make_unique<CHttpRequest>(m_hSession);
    }
    ~RequestTest() override
    {
        m_pRequest.reset();
        InternetCloseHandle(m_hSession);
    }

    // Runs a whole exchange and waits until its thread is gone.
    void RunExchange()
    {
        ASSERT_TRUE(m_pRequest->StartWorker());
        ASSERT_TRUE(m_system.WaitForThreads());
    }

    unsigned long Status()
    {
        unsigned long status = 0xEEEE;
        EXPECT_EQ(m_pRequest->GetStatus(&status), S_OK);
        return status;
    }

    // The calls of that function.
    std::vector<std::string> Calls(const std::string& function) const
    {
        std::vector<std::string> calls = m_journal.Texts(CALL_NET);
        std::erase_if(calls, [&](const std::string& call) { return !call.starts_with(function); });
        return calls;
    }

    CJournal m_journal;
    CScriptedWinInet m_winInet{m_journal};
    CScriptedSystem m_system{m_journal};
    CRecordedTrace m_trace{m_journal};
    CImportPatches m_imports;
    HINTERNET m_hSession = nullptr;
    std::unique_ptr<CHttpRequest> m_pRequest;
};
