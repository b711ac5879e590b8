#include "Component.h"

namespace
{

// An end that is lost shows only in the time-out.
constexpr unsigned long kTimeoutS = 10;
constexpr unsigned long kLongTimeoutS = 300;
constexpr size_t kLongAnswer = 4 << 20;

}  // namespace

CModule::CModule(const std::wstring& name) : m_hModule(LoadLibraryW((ProgramFolder() + name).c_str()))
{
    using GetClassObjectProc = HRESULT(STDAPICALLTYPE*)(REFCLSID, REFIID, void**);
    const auto getClassObject = reinterpret_cast<GetClassObjectProc>(
        reinterpret_cast<void*>(GetProcAddress(m_hModule, "DllGetClassObject")));
    void* pFactory = nullptr;
    if (getClassObject == nullptr || FAILED(getClassObject(CLSID_HttpRaw, IID_IClassFactory, &pFactory)))
    {
        throw CFailure("the module cannot be loaded");
    }
    m_pFactory = static_cast<IClassFactory*>(pFactory);
}

CModule::~CModule()
{
    m_pFactory->Release();
    FreeLibrary(m_hModule);
}

IHttpRaw* CModule::Create() const
{
    void* pHttpRaw = nullptr;
    if (FAILED(m_pFactory->CreateInstance(nullptr, IID_IHttpRaw, &pHttpRaw)))
    {
        throw CFailure("the component cannot be created");
    }
    return static_cast<IHttpRaw*>(pHttpRaw);
}

CComponentPoster::~CComponentPoster()
{
    SysFreeString(m_bstrAnswer);
    m_pHttpRaw->Release();
}

void CComponentPoster::Start(const CTask& task)
{
    SysFreeString(m_bstrAnswer);
    m_bstrAnswer = nullptr;
    const bool bLong = !task.file.empty() || task.answer.size() >= kLongAnswer;
    m_pHttpRaw->SetTimeout(bLong ? kLongTimeoutS : kTimeoutS);
    m_pHttpRaw->SetDownloadFile(task.file.c_str());
    m_pHttpRaw->PostRequest(task.url.c_str(), task.wideForm.c_str());
}

bool CComponentPoster::HasEnded()
{
    m_pHttpRaw->GetRequestStatus(&m_status);
    if (m_status == REQ_STATUS_TIMEOUT)
    {
        throw CLostEnd("the exchange has timed out");
    }
    return m_status != REQ_STATUS_SENDING && m_status != REQ_STATUS_RECEIVING;
}

void CComponentPoster::TakeAnswer(const CTask& task)
{
    if (task.file.empty())
    {
        m_pHttpRaw->GetResponseData(&m_bstrAnswer);
    }
}

bool CComponentPoster::HasAnswer(const CTask& task) const
{
    return m_status == REQ_STATUS_DONE &&
           (!task.file.empty() || std::wstring(m_bstrAnswer, SysStringLen(m_bstrAnswer)) == task.wideAnswer);
}

std::wstring ProgramFolder()
{
    wchar_t szPath[MAX_PATH] = {};
    GetModuleFileNameW(nullptr, szPath, MAX_PATH);
    const std::wstring path(szPath);
    return path.substr(0, path.rfind(L'\\') + 1);
}
