// A component as a test scripts it, with the factory that gives it out. What is asked of it is written down.
#pragma once

#include <windows.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "kvHttp/HttpRaw.h"
#include "support/Script.h"

class CScriptedHttpRaw : public IHttpRaw
{
public:
    // The statuses that the polls are told, one each, and for ever the last one.
    CScript<unsigned long> m_statuses{REQ_STATUS_SENDING};
    std::function<void()> m_onPoll;
    HRESULT m_hrPost = S_OK;
    std::optional<std::wstring> m_answer;  // absent: E_FAIL
    bool m_bThrow = false;                 // when it is asked for the answer
    std::function<void()> m_onLastRelease;

    // But for the polls.
    std::vector<std::wstring> m_calls;
    int m_polls = 0;
    ULONG m_references = 0;
    std::wstring m_file;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void** ppv) override
    {
        *ppv = nullptr;
        return E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++m_references; }
    ULONG STDMETHODCALLTYPE Release() override
    {
        if (m_references == 1 && m_onLastRelease)
        {
            m_onLastRelease();
        }
        return --m_references;
    }
    HRESULT STDMETHODCALLTYPE PostRequest(const wchar_t* url, const wchar_t* data) override
    {
        m_calls.push_back(std::wstring(L"PostRequest ") + url + L" " + data);
        return m_hrPost;
    }
    HRESULT STDMETHODCALLTYPE PostUrl(const wchar_t* url) override
    {
        m_calls.push_back(std::wstring(L"PostUrl ") + url);
        return m_hrPost;
    }
    HRESULT STDMETHODCALLTYPE GetRequestStatus(unsigned long* status) override
    {
        ++m_polls;
        if (m_onPoll)
        {
            m_onPoll();
        }
        *status = m_statuses.Next();
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetResponseData(BSTR* response) override
    {
        m_calls.push_back(L"GetResponseData");
        if (m_bThrow)
        {
            throw E_OUTOFMEMORY;
        }
        if (!m_answer)
        {
            return E_FAIL;
        }
        *response = SysAllocStringLen(m_answer->data(), static_cast<UINT>(m_answer->size()));
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE SetDownloadFile(const wchar_t* path) override
    {
        m_file = path;
        m_calls.push_back(L"SetDownloadFile " + m_file);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE SetParentWnd(HWND parent) override
    {
        m_calls.push_back(L"SetParentWnd " + std::to_wstring(reinterpret_cast<ULONG_PTR>(parent)));
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE SetTimeout(unsigned long seconds) override
    {
        m_calls.push_back(L"SetTimeout " + std::to_wstring(seconds));
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE SetTraceResponse(unsigned long flag) override
    {
        m_calls.push_back(L"SetTraceResponse " + std::to_wstring(flag));
        return S_OK;
    }
};

class CScriptedFactory : public IClassFactory
{
public:
    explicit CScriptedFactory(IHttpRaw& httpRaw) : m_httpRaw(httpRaw) {}

    HRESULT m_hr = S_OK;
    int m_made = 0;
    ULONG m_references = 0;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void** ppv) override
    {
        *ppv = nullptr;
        return E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++m_references; }
    ULONG STDMETHODCALLTYPE Release() override { return --m_references; }
    HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* pOuter, REFIID riid, void** ppv) override
    {
        if (FAILED(m_hr) || pOuter != nullptr || !IsEqualIID(riid, IID_IHttpRaw))
        {
            return FAILED(m_hr) ? m_hr : E_INVALIDARG;
        }
        ++m_made;
        m_httpRaw.AddRef();
        *ppv = &m_httpRaw;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE LockServer(BOOL) override { return S_OK; }

private:
    IHttpRaw& m_httpRaw;
};
