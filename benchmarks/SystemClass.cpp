#include "SystemClass.h"

#include <oleauto.h>

#include <cwchar>
#include <vector>

namespace
{

constexpr long kComplete = 4;
constexpr long kWaitS = 60;

VARIANT Text(const std::wstring& text)
{
    VARIANT variant = {};
    variant.vt = VT_BSTR;
    variant.bstrVal = SysAllocStringLen(text.data(), static_cast<UINT>(text.size()));
    return variant;
}

VARIANT Flag(bool bSet)
{
    VARIANT variant = {};
    variant.vt = VT_BOOL;
    variant.boolVal = bSet ? VARIANT_TRUE : VARIANT_FALSE;
    return variant;
}

VARIANT Long(long number)
{
    VARIANT variant = {};
    variant.vt = VT_I4;
    variant.lVal = number;
    return variant;
}

IDispatch* CreateByName(const wchar_t* pszProgId)
{
    CLSID clsid = {};
    void* pObject = nullptr;
    if (FAILED(CLSIDFromProgID(pszProgId, &clsid)) ||
        FAILED(CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, IID_IDispatch, &pObject)))
    {
        throw CFailure("the system has no such class");
    }
    return static_cast<IDispatch*>(pObject);
}

}  // namespace

CSystemClass::CSystemClass(const wchar_t* pszProgId, bool bManyAtOnce)
    : m_pObject(CreateByName(pszProgId)),
      m_bWinHttp(std::wcsncmp(pszProgId, L"WinHttp.", 8) == 0),
      m_bManyAtOnce(bManyAtOnce)
{
}

CSystemClass::~CSystemClass()
{
    SysFreeString(m_bstrAnswer);
    m_pObject->Release();
}

void CSystemClass::Start(const CTask& task)
{
    SysFreeString(m_bstrAnswer);
    m_bstrAnswer = nullptr;
    Invoke(L"open", DISPATCH_METHOD, {Flag(m_bManyAtOnce), Text(task.url), Text(L"POST")});
    Invoke(L"setRequestHeader", DISPATCH_METHOD,
           {Text(L"application/x-www-form-urlencoded"), Text(L"Content-Type")});
    Invoke(L"send", DISPATCH_METHOD, {Text(task.wideForm)});
}

bool CSystemClass::HasEnded()
{
    if (!m_bManyAtOnce)
    {
        return true;
    }
    if (m_bWinHttp)
    {
        // What it gives is not to be relied on: Wine leaves it unset for an answer that is there already.
        Invoke(L"WaitForResponse", DISPATCH_METHOD, {Long(kWaitS)});
        return true;
    }
    // These post themselves messages.
    for (MSG msg = {}; PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE);)
    {
        DispatchMessageW(&msg);
    }
    return Number(L"readyState") == kComplete;
}

void CSystemClass::TakeAnswer(const CTask& /*task*/)
{
    m_status = Number(L"status");
    m_bstrAnswer = Invoke(L"responseText", DISPATCH_PROPERTYGET).bstrVal;
}

bool CSystemClass::HasAnswer(const CTask& task) const
{
    return m_status == 200 && std::wstring(m_bstrAnswer, SysStringLen(m_bstrAnswer)) == task.wideAnswer;
}

VARIANT CSystemClass::Invoke(const wchar_t* pszName, WORD wFlags, std::initializer_list<VARIANT> arguments)
{
    std::vector<VARIANT> list(arguments);
    DISPPARAMS parameters = {};
    parameters.rgvarg = list.data();
    parameters.cArgs = static_cast<UINT>(list.size());
    VARIANT result = {};
    DISPID id = 0;
    std::wstring name(pszName);
    LPOLESTR pName = name.data();
    HRESULT hr = m_pObject->GetIDsOfNames(IID_NULL, &pName, 1, LOCALE_USER_DEFAULT, &id);
    if (SUCCEEDED(hr))
    {
        hr = m_pObject->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, wFlags, &parameters, &result, nullptr,
                               nullptr);
    }
    for (VARIANT& argument : list)
    {
        VariantClear(&argument);
    }
    if (FAILED(hr))
    {
        throw CFailure("a call of the class fails: " + std::to_string(hr));
    }
    return result;
}

long CSystemClass::Number(const wchar_t* pszName)
{
    return Invoke(pszName, DISPATCH_PROPERTYGET).lVal;
}
