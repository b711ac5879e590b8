#include "module/HttpRawTest.h"

#include <utility>

namespace
{

std::function<void()> g_onWait;

DWORD WINAPI NotifyAndWait(DWORD cHandles, const HANDLE* pHandles, BOOL bAll, DWORD dwTimeout, DWORD dwMask)
{
    g_onWait();
    return MsgWaitForMultipleObjects(cHandles, pHandles, bAll, dwTimeout, dwMask);
}

}  // namespace

HttpRawTest::HttpRawTest() : m_pModule(Load()), m_pHttpRaw(m_pModule->CreateHttpRaw())
{
    EXPECT_NE(m_pHttpRaw, nullptr);
}

HttpRawTest::~HttpRawTest()
{
    Unload();
    EXPECT_FALSE(m_system.IsFileOpen());
    EXPECT_FALSE(m_trace.IsLoaded());
}

std::unique_ptr<CBuiltModule> HttpRawTest::Load()
{
    auto pModule = std::make_unique<CBuiltModule>();
    m_winInet.Attach(pModule->Imports());
    m_system.Attach(pModule->Imports());
    m_trace.Attach(pModule->Imports());
    return pModule;
}

HRESULT HttpRawTest::Post(const wchar_t* url, const wchar_t* data)
{
    const HRESULT hr = StartPost(url, data);
    Finish();
    return hr;
}

HRESULT HttpRawTest::PostUrl(const wchar_t* url)
{
    const HRESULT hr = m_pHttpRaw->PostUrl(url);
    Finish();
    return hr;
}

HRESULT HttpRawTest::StartPost(const wchar_t* url, const wchar_t* data)
{
    return m_pHttpRaw->PostRequest(url, data);
}

void HttpRawTest::Finish()
{
    m_system.LetGo();
    EXPECT_TRUE(m_system.WaitForThreads()) << "the worker does not end";
}

void HttpRawTest::PostInto(CHold& hold)
{
    EXPECT_EQ(StartPost(), S_OK);
    m_system.LetGo();
    EXPECT_TRUE(hold.Reached()) << "the worker does not get to the call where it should be held";
}

unsigned long HttpRawTest::StatusAfter(DWORD milliseconds)
{
    m_system.m_dwTick += milliseconds;
    return Status();
}

unsigned long HttpRawTest::Status()
{
    unsigned long status = 0xFFFF;
    EXPECT_EQ(m_pHttpRaw->GetRequestStatus(&status), S_OK);
    return status;
}

std::wstring HttpRawTest::Response()
{
    BSTR bstr = nullptr;
    EXPECT_EQ(m_pHttpRaw->GetResponseData(&bstr), S_OK);
    const std::wstring text = bstr == nullptr ? L"" : std::wstring(bstr, SysStringLen(bstr));
    SysFreeString(bstr);
    return text;
}

HRESULT HttpRawTest::ResponseResult()
{
    BSTR bstr = nullptr;
    const HRESULT hr = m_pHttpRaw->GetResponseData(&bstr);
    SysFreeString(bstr);
    return hr;
}

void HttpRawTest::ReleaseComponent()
{
    m_system.LetGo();
    if (m_pHttpRaw != nullptr)
    {
        std::exchange(m_pHttpRaw, nullptr)->Release();
    }
    EXPECT_TRUE(m_system.WaitForThreads()) << "the worker does not end";
}

void HttpRawTest::ReleaseComponent(std::function<void()> onWait)
{
    g_onWait = std::move(onWait);
    m_pModule->Imports().Add("MsgWaitForMultipleObjects", NotifyAndWait);
    ReleaseComponent();
}

void HttpRawTest::Unload()
{
    ReleaseComponent();
    m_pModule.reset();
}

Texts HttpRawTest::Select(unsigned kinds, const std::string& prefix) const
{
    Texts selected;
    for (const std::string& text : m_journal.Texts(kinds))
    {
        if (text.starts_with(prefix))
        {
            selected.push_back(text);
        }
    }
    return selected;
}

Texts HttpRawTest::TracedTexts() const
{
    Texts selected;
    for (const std::string& text : Trace())
    {
        if (!text.starts_with("2|--> ") && !text.starts_with("2|<-- ") && !text.starts_with("2| emStatus="))
        {
            selected.push_back(text);
        }
    }
    return selected;
}

Texts HttpRawTest::Statuses() const
{
    const std::string prefix = "2| emStatus=";
    Texts statuses;
    for (const std::string& text : Select(CALL_TRACE, prefix))
    {
        statuses.push_back(text.substr(prefix.size(), 1));
    }
    return statuses;
}

void HttpRawTest::MoveTickAt(const std::string& call, int nth, DWORD milliseconds)
{
    m_journal.On(call, nth, [this, milliseconds] { m_system.m_dwTick += milliseconds; });
}

std::string SendOf(const std::string& request, const std::string& body, size_t length)
{
    return "HttpSendRequestW(" + request + ", 'Content-Type: application/x-www-form-urlencoded\r\n', 49, " +
           body + ", " + std::to_string(length) + ")";
}

std::string OpenOf(int number, const std::string& object)
{
    return "HttpOpenRequestW(connect" + std::to_string(number) + ", 'POST', '" + object +
           "', 'HTTP/1.1', null, null, 0x84400900, 0)";
}

Texts StatusRecords(int status)
{
    return {Enter("CHttpRequest::UpdateRequestStatus"), "2| emStatus=" + std::to_string(status) + ",\n",
            Leave("CHttpRequest::UpdateRequestStatus")};
}

Texts NoBrowserRecords()
{
    return {Enter("CProxyInfo::GetDefaultBrowser()."),
            "2| CProxyInfo::GetDefaultBrowser: can not found the default browser reg key!\n,\n",
            Leave("CProxyInfo::GetDefaultBrowser()."),
            "2| CProxyInfo::GetProxyInfo: Default Browser is Other!\n,\n",
            "2| ProxyInfo: autourl-, manual-, bypass-, type-0,\n"};
}

std::string Enter(const std::string& function)
{
    return "2|--> " + function + " \n";
}

std::string Leave(const std::string& function)
{
    return "2|<-- " + function + " \n";
}

Texts Join(std::initializer_list<Texts> lists)
{
    Texts joined;
    for (const Texts& list : lists)
    {
        joined.insert(joined.end(), list.begin(), list.end());
    }
    return joined;
}
