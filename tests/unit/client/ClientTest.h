// A client with a scripted component, on a clock that moves only by the test's hand and by the client's own
// waits.
#pragma once

#include <gmock/gmock.h>

#include <atomic>
#include <chrono>
#include <string>
#include <vector>

#include "kvHttp/Client.h"
#include "support/ImportPatch.h"
#include "unit/client/ScriptedHttpRaw.h"

std::ostream& operator<<(std::ostream& stream, const kvHttp::Progress& progress);

namespace kvHttp
{

inline std::ostream& operator<<(std::ostream& stream, Outcome outcome)
{
    return stream << testing::PrintToString(std::wstring(Describe(outcome)));
}

}  // namespace kvHttp

class ClientTest : public testing::Test
{
protected:
    ClientTest()
    {
        s_now = 1000;
        m_imports.Add("GetTickCount64", Now);
        s_pfnWait = m_imports.Add("MsgWaitForMultipleObjectsEx", WaitAtOnce);
    }

    // The messages that wait in the queue, a quit message with its code among them.
    static std::vector<std::wstring> TakeMessages()
    {
        std::vector<std::wstring> messages;
        for (MSG msg = {}; PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE);)
        {
            messages.push_back(msg.message == WM_QUIT ? L"quit " + std::to_wstring(msg.wParam)
                                                      : std::to_wstring(msg.message));
        }
        return messages;
    }

    static ULONGLONG WINAPI Now() { return s_now; }
    static DWORD WINAPI WaitAtOnce(DWORD count, const HANDLE* pHandles, DWORD dwMs, DWORD dwMask,
                                   DWORD dwFlags)
    {
        const DWORD dwResult = s_pfnWait(count, pHandles, 0, dwMask, dwFlags);
        if (dwResult == WAIT_TIMEOUT)
        {
            s_now += dwMs;
        }
        return dwResult;
    }

    static inline std::atomic<ULONGLONG> s_now = 0;
    static inline decltype(&WaitAtOnce) s_pfnWait = nullptr;

    CImportPatches m_imports;
    CScriptedHttpRaw m_httpRaw;
    CScriptedFactory m_factory{m_httpRaw};
    kvHttp::CClient m_client{&m_factory};
};
