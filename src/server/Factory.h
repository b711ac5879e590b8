// Class factory of the module: creates the component that one row of the component table names.
#pragma once

#include <windows.h>

#include <unknwn.h>

#include "server/Unknown.h"

// One row of the component table: what the factory creates and what registration writes.
struct CFactoryData
{
    const CLSID* pClsid;
    HRESULT (*pfnCreate)(IUnknown* pUnknownOuter, CUnknown** ppNewComponent);
    const wchar_t* pszFriendlyName;
    const wchar_t* pszProgId;
    const wchar_t* pszVersionIndependentProgId;
};

// Locks that clients hold on the module.
extern LONG g_cServerLocks;

class CFactory final : public IClassFactory
{
public:
    // Starts with one reference; the row outlives the factory.
    explicit CFactory(const CFactoryData* pFactoryData) : m_pFactoryData(pFactoryData) {}
    CFactory(const CFactory&) = delete;
    CFactory& operator=(const CFactory&) = delete;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override;
    ULONG STDMETHODCALLTYPE AddRef() override;
    ULONG STDMETHODCALLTYPE Release() override;

    // CLASS_E_NOAGGREGATION when an outer object asks for anything but IID_IUnknown; otherwise what the
    // row's create function, the object's Init and its interface query give, in that order. *ppv is
    // written only by the interface query.
    HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* pUnknownOuter, REFIID riid, void** ppv) override;
    HRESULT STDMETHODCALLTYPE LockServer(BOOL fLock) override;

private:
    ~CFactory() = default;

    LONG m_cRef = 1;
    const CFactoryData* m_pFactoryData;
};

// Looks clsid up in the component table and hands out a factory for it. E_NOINTERFACE when riid is
// neither IID_IUnknown nor IID_IClassFactory, even for an unknown clsid; CLASS_E_CLASSNOTAVAILABLE when
// the table has no such row. *ppv is written only on success.
HRESULT GetClassObject(REFCLSID clsid, REFIID riid, void** ppv);
