#include "server/Factory.h"

#include <new>

#include "server/ComponentTable.h"

LONG g_cServerLocks = 0;

HRESULT CFactory::QueryInterface(REFIID riid, void** ppv)
{
    if (ppv == nullptr)
    {
        return E_INVALIDARG;
    }
    if (!IsEqualIID(riid, IID_IUnknown) && !IsEqualIID(riid, IID_IClassFactory))
    {
        *ppv = nullptr;
        return E_NOINTERFACE;
    }
    *ppv = static_cast<IClassFactory*>(this);
    AddRef();
    return S_OK;
}

ULONG CFactory::AddRef()
{
    return static_cast<ULONG>(InterlockedIncrement(&m_cRef));
}

ULONG CFactory::Release()
{
    // Not read again: by then another thread may have dropped the last reference, and the factory with it.
    const LONG cRef = InterlockedDecrement(&m_cRef);
    if (cRef == 0)
    {
        delete this;
    }
    return static_cast<ULONG>(cRef);
}

HRESULT CFactory::CreateInstance(IUnknown* pUnknownOuter, REFIID riid, void** ppv)
{
    if (pUnknownOuter != nullptr && !IsEqualIID(riid, IID_IUnknown))
    {
        return CLASS_E_NOAGGREGATION;
    }
    CUnknown* pComponent = nullptr;
    HRESULT hr = m_pFactoryData->pfnCreate(pUnknownOuter, &pComponent);
    if (FAILED(hr))
    {
        return hr;
    }
    if (pComponent == nullptr)
    {
        // The create function says S_OK even when it has no memory for the object.
        return E_OUTOFMEMORY;
    }
    hr = pComponent->Init();
    if (SUCCEEDED(hr))
    {
        hr = pComponent->NondelegatingQueryInterface(riid, ppv);
    }
    pComponent->NondelegatingRelease();
    return hr;
}

HRESULT CFactory::LockServer(BOOL fLock)
{
    if (fLock)
    {
        InterlockedIncrement(&g_cServerLocks);
    }
    else
    {
        InterlockedDecrement(&g_cServerLocks);
    }
    return S_OK;
}

HRESULT GetClassObject(REFCLSID clsid, REFIID riid, void** ppv)
{
    if (!IsEqualIID(riid, IID_IUnknown) && !IsEqualIID(riid, IID_IClassFactory))
    {
        return E_NOINTERFACE;
    }
    for (const CFactoryData& row : g_FactoryDataArray)
    {
        if (IsEqualCLSID(*row.pClsid, clsid))
        {
            CFactory* pFactory = new (std::nothrow) CFactory(&row);
            if (pFactory == nullptr)
            {
                return E_OUTOFMEMORY;
            }
            const HRESULT hr = pFactory->QueryInterface(riid, ppv);
            pFactory->Release();
            return hr;
        }
    }
    return CLASS_E_CLASSNOTAVAILABLE;
}
