// A component of the built module over a scripted platform. The module is loaded anew for each test. The
// worker waits until the sending call has returned, so that calls and trace records come in one order.
#pragma once

#include <gmock/gmock.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "support/BuiltModule.h"
#include "support/Gate.h"
#include "support/Hold.h"
#include "support/Journal.h"
#include "support/RecordedTrace.h"
#include "support/ScriptedSystem.h"
#include "support/ScriptedWinInet.h"
#include "support/WindowNames.h"

using Texts = std::vector<std::string>;

class HttpRawTest : public testing::Test
{
protected:
    HttpRawTest();
    // Checks that nothing was left open.
    ~HttpRawTest() override;

    // Sends and lets the exchange run to its end.
    HRESULT Post(const wchar_t* url = L"http://127.0.0.1/p", const wchar_t* data = L"a=1");
    HRESULT PostUrl(const wchar_t* url);
    // Sends; the worker stays before its first instruction until Finish, which lets it run to its end.
    HRESULT StartPost(const wchar_t* url = L"http://127.0.0.1/p", const wchar_t* data = L"a=1");
    void Finish();
    // Sends and lets the worker run into hold; the test goes on while it stays there.
    void PostInto(CHold& hold);

    unsigned long Status();
    // Lets the tick counter move on, then asks for the status.
    unsigned long StatusAfter(DWORD milliseconds);
    // The answer as text; fails the test when there is none.
    std::wstring Response();
    HRESULT ResponseResult();

    // Drops the component, which ends its worker.
    void ReleaseComponent();
    // The same; the action runs when the host's thread begins to wait for a worker.
    void ReleaseComponent(std::function<void()> onWait);
    // Drops the component and unloads the module.
    void Unload();
    std::unique_ptr<CBuiltModule> Load();

    Texts Net() const { return m_journal.Texts(CALL_NET); }
    Texts Trace() const { return m_journal.Texts(CALL_TRACE); }
    // Those of a kind that begin with prefix.
    Texts Select(unsigned kinds, const std::string& prefix) const;
    // Records that the marks of functions and statuses leave, without those marks.
    Texts TracedTexts() const;
    // Arguments and all of the scripted functions' calls.
    Texts Connects() const { return Select(CALL_NET, "InternetConnectW"); }
    Texts Opens() const { return Select(CALL_NET, "HttpOpenRequestW"); }
    Texts Sends() const { return Select(CALL_NET, "HttpSendRequestW"); }
    Texts Reads() const { return Select(CALL_NET, "InternetReadFile"); }
    Texts Dialogs() const { return Select(CALL_NET, "InternetErrorDlg"); }
    // Records at error level.
    Texts TracedErrors() const { return Select(CALL_TRACE, "8|"); }
    // Statuses in the order in which they were set.
    Texts Statuses() const;

    // Forgets all calls so far.
    void ClearJournal() { m_journal.Clear(); }
    // Moves the tick counter within the nth call of a function.
    void MoveTickAt(const std::string& call, int nth, DWORD milliseconds);

    CJournal m_journal;
    CScriptedWinInet m_winInet{m_journal};
    CScriptedSystem m_system{m_journal};
    CRecordedTrace m_trace{m_journal};
    std::unique_ptr<CBuiltModule> m_pModule;
    IHttpRaw* m_pHttpRaw = nullptr;
};

// A send of the header that every request has.
std::string SendOf(const std::string& request, const std::string& body, size_t length);
// The open of a plain request on the connection of that number.
std::string OpenOf(int number, const std::string& object);
// The records of a status change.
Texts StatusRecords(int status);
// The entry or exit mark of a function.
std::string Enter(const std::string& function);
std::string Leave(const std::string& function);
// The records of a discovery that finds no default browser.
Texts NoBrowserRecords();
// Puts lists one behind the other.
Texts Join(std::initializer_list<Texts> lists);
