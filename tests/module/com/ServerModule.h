// The built module with its exports, loaded from any path and unloaded when the test says so.
#pragma once

#include <windows.h>

#include <string>

#include "kvHttp/HttpRaw.h"

class CServerModule
{
public:
    // The module that was built, beside the test program.
    static std::wstring BuiltPath()
    {
        wchar_t szPath[MAX_PATH] = {};
        GetModuleFileNameW(nullptr, szPath, MAX_PATH);
        const std::wstring path(szPath);
        return path.substr(0, path.rfind(L'\\') + 1) + L"kvHttp.dll";
    }

    explicit CServerModule(const std::wstring& path = BuiltPath()) : m_hModule(LoadLibraryW(path.c_str())) {}
    ~CServerModule() { Unload(); }
    CServerModule(const CServerModule&) = delete;
    CServerModule& operator=(const CServerModule&) = delete;

    // Null when it could not be loaded.
    HMODULE Handle() const { return m_hModule; }

    void Unload()
    {
        if (m_hModule != nullptr)
        {
            FreeLibrary(m_hModule);
            m_hModule = nullptr;
        }
    }

    HRESULT GetClassObject(REFCLSID clsid, REFIID riid, void** ppv) const
    {
        return Export<HRESULT STDAPICALLTYPE(REFCLSID, REFIID, void**)>("DllGetClassObject")(clsid, riid,
                                                                                             ppv);
    }
    HRESULT CanUnloadNow() const { return Export<HRESULT STDAPICALLTYPE()>("DllCanUnloadNow")(); }
    HRESULT Register() const { return Export<HRESULT STDAPICALLTYPE()>("DllRegisterServer")(); }
    HRESULT Unregister() const { return Export<HRESULT STDAPICALLTYPE()>("DllUnregisterServer")(); }

    // Null when the module does not make one.
    IClassFactory* CreateFactory() const
    {
        void* pFactory = nullptr;
        GetClassObject(CLSID_HttpRaw, IID_IClassFactory, &pFactory);
        return static_cast<IClassFactory*>(pFactory);
    }
    IHttpRaw* CreateHttpRaw() const
    {
        IClassFactory* pFactory = CreateFactory();
        void* pHttpRaw = nullptr;
        if (pFactory != nullptr)
        {
            pFactory->CreateInstance(nullptr, IID_IHttpRaw, &pHttpRaw);
            pFactory->Release();
        }
        return static_cast<IHttpRaw*>(pHttpRaw);
    }

private:
    template <typename Function>
    Function* Export(const char* pszName) const
    {
        return reinterpret_cast<Function*>(reinterpret_cast<void*>(GetProcAddress(m_hModule, pszName)));
    }

    HMODULE m_hModule;
};
