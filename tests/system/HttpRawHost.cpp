#include "system/HttpRawHost.h"

#include <gtest/gtest.h>

#include "support/ImportPatch.h"

namespace
{

// Each post holds it shared. A worker that gets it exclusively knows that the post that started it has
// returned, however many other threads post meanwhile.
SRWLOCK g_posting = SRWLOCK_INIT;

BOOL WINAPI ConnectedOncePosted(LPDWORD pdwFlags, DWORD)
{
    AcquireSRWLockExclusive(&g_posting);
    ReleaseSRWLockExclusive(&g_posting);
    *pdwFlags = 0x02;  // a local network
    return TRUE;
}

HMODULE LoadFromTestFolder()
{
    wchar_t szPath[MAX_PATH] = {};
    GetModuleFileNameW(nullptr, szPath, MAX_PATH);
    std::wstring path(szPath);
    path.replace(path.rfind(L'\\') + 1, std::wstring::npos, L"kvHttp.dll");
    const HMODULE hModule = LoadLibraryW(path.c_str());
    EXPECT_NE(hModule, nullptr) << "no kvHttp.dll beside the test program";
    return hModule;
}

}  // namespace

std::ostream& operator<<(std::ostream& stream, Status status)
{
    switch (status.value)
    {
        case REQ_STATUS_HTTP_ERROR:
            return stream << "REQ_STATUS_HTTP_ERROR (0)";
        case REQ_STATUS_IDLE:
            return stream << "REQ_STATUS_IDLE (1)";
        case REQ_STATUS_FAILED:
            return stream << "REQ_STATUS_FAILED (2)";
        case REQ_STATUS_NOT_CONNECTED:
            return stream << "REQ_STATUS_NOT_CONNECTED (3)";
        case REQ_STATUS_SENDING:
            return stream << "REQ_STATUS_SENDING (5)";
        case REQ_STATUS_RECEIVING:
            return stream << "REQ_STATUS_RECEIVING (6)";
        case REQ_STATUS_TIMEOUT:
            return stream << "REQ_STATUS_TIMEOUT (7)";
        case REQ_STATUS_DONE:
            return stream << "REQ_STATUS_DONE (9)";
        default:
            return stream << "unknown status " << status.value;
    }
}

HMODULE CHttpRawHost::Module()
{
    static const HMODULE hModule = LoadFromTestFolder();
    static const CImportPatch patch(hModule, "InternetGetConnectedState", ConnectedOncePosted);
    return hModule;
}

CHttpRawHost::CHttpRawHost() : m_pHttpRaw(nullptr)
{
    using GetClassObjectProc = HRESULT(STDAPICALLTYPE*)(REFCLSID, REFIID, void**);
    const auto getClassObject = reinterpret_cast<GetClassObjectProc>(
        reinterpret_cast<void*>(GetProcAddress(Module(), "DllGetClassObject")));
    void* pFactory = nullptr;
    EXPECT_EQ(getClassObject(CLSID_HttpRaw, IID_IClassFactory, &pFactory), S_OK);
    void* pHttpRaw = nullptr;
    EXPECT_EQ(static_cast<IClassFactory*>(pFactory)->CreateInstance(nullptr, IID_IHttpRaw, &pHttpRaw), S_OK);
    static_cast<IClassFactory*>(pFactory)->Release();
    m_pHttpRaw = static_cast<IHttpRaw*>(pHttpRaw);
}

CHttpRawHost::~CHttpRawHost()
{
    if (m_pHttpRaw != nullptr)
    {
        Release();
    }
}

void CHttpRawHost::Post(const std::wstring& url, const std::wstring& data)
{
    m_seen.clear();
    AcquireSRWLockShared(&g_posting);
    const HRESULT hr = m_pHttpRaw->PostRequest(url.c_str(), data.c_str());
    ReleaseSRWLockShared(&g_posting);
    EXPECT_EQ(hr, S_OK);
}

Status CHttpRawHost::AwaitEnd()
{
    const ULONGLONG deadline = GetTickCount64() + kPatienceMs;
    unsigned long status = Poll();
    while ((status == REQ_STATUS_SENDING || status == REQ_STATUS_RECEIVING) && GetTickCount64() < deadline)
    {
        PumpMessages();
        status = Poll();
    }
    return {status};
}

bool CHttpRawHost::AwaitStatus(HttpRequestStatus emStatus)
{
    const ULONGLONG deadline = GetTickCount64() + kPatienceMs;
    while (Poll() != static_cast<unsigned long>(emStatus))
    {
        if (GetTickCount64() >= deadline)
        {
            return false;
        }
        PumpMessages();
    }
    return true;
}

Status CHttpRawHost::PostAndAwaitEnd(const std::wstring& url, const std::wstring& data)
{
    Post(url, data);
    return AwaitEnd();
}

std::optional<std::wstring> CHttpRawHost::TakeAnswer() const
{
    BSTR bstrAnswer = nullptr;
    if (FAILED(m_pHttpRaw->GetResponseData(&bstrAnswer)))
    {
        return std::nullopt;
    }
    std::wstring answer(bstrAnswer, SysStringLen(bstrAnswer));
    SysFreeString(bstrAnswer);
    return answer;
}

DWORD CHttpRawHost::Release()
{
    const ULONGLONG begin = GetTickCount64();
    EXPECT_EQ(m_pHttpRaw->Release(), 0u);
    m_pHttpRaw = nullptr;
    return static_cast<DWORD>(GetTickCount64() - begin);
}

unsigned long CHttpRawHost::Poll()
{
    unsigned long status = 0;
    EXPECT_EQ(m_pHttpRaw->GetRequestStatus(&status), S_OK);
    if (m_seen.empty() || m_seen.back() != status)
    {
        m_seen.push_back(status);
    }
    return status;
}

// One turn of a host's message loop: as long as nothing happens, the next poll comes a moment later.
void CHttpRawHost::PumpMessages() const
{
    MsgWaitForMultipleObjects(0, nullptr, FALSE, 5, QS_ALLINPUT);
    MSG msg = {};
    while (PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE))
    {
        DispatchMessageW(&msg);
    }
}
