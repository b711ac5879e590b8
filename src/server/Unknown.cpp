#include "server/Unknown.h"

LONG g_cComponents = 0;

CUnknown::CUnknown(IUnknown* pUnknownOuter)
    : m_pUnknownOuter(pUnknownOuter != nullptr
                          ? pUnknownOuter
                          : reinterpret_cast<IUnknown*>(static_cast<INondelegatingUnknown*>(this)))
{
    InterlockedIncrement(&g_cComponents);
}

CUnknown::~CUnknown()
{
    InterlockedDecrement(&g_cComponents);
}

HRESULT CUnknown::NondelegatingQueryInterface(REFIID riid, void** ppv)
{
    if (!IsEqualIID(riid, IID_IUnknown))
    {
        *ppv = nullptr;
        return E_NOINTERFACE;
    }
    *ppv = static_cast<INondelegatingUnknown*>(this);
    NondelegatingAddRef();
    return S_OK;
}

ULONG CUnknown::NondelegatingAddRef()
{
    return static_cast<ULONG>(InterlockedIncrement(&m_cRef));
}

ULONG CUnknown::NondelegatingRelease()
{
    // Not read again: by then another thread may have dropped the last reference, and the object with it.
    const LONG cRef = InterlockedDecrement(&m_cRef);
    if (cRef != 0)
    {
        return static_cast<ULONG>(cRef);
    }
    FinalRelease();
    delete this;
    return 0;
}

HRESULT CUnknown::Init()
{
    return S_OK;
}

void CUnknown::FinalRelease()
{
    m_cRef = 1;
}
