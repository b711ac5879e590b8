// The aggregatable, reference-counted base of every component in this module. An object has two faces:
// the non-delegating one, which is its own IUnknown, and the IUnknown of each interface it exposes,
// which forwards to the outer unknown. Without an outer object the outer unknown is the object's own
// non-delegating face, handed on as IUnknown*: the two have the same first three slots.
#pragma once

#include <windows.h>

#include <unknwn.h>

// Components alive in this module.
extern LONG g_cComponents;

struct INondelegatingUnknown
{
    virtual HRESULT STDMETHODCALLTYPE NondelegatingQueryInterface(REFIID riid, void** ppv) = 0;
    virtual ULONG STDMETHODCALLTYPE NondelegatingAddRef() = 0;
    virtual ULONG STDMETHODCALLTYPE NondelegatingRelease() = 0;

protected:
    ~INondelegatingUnknown() = default;
};

class CUnknown : public INondelegatingUnknown
{
public:
    // Starts with one reference. pUnknownOuter is borrowed, as aggregation demands; null makes the
    // object its own.
    explicit CUnknown(IUnknown* pUnknownOuter);
    CUnknown(const CUnknown&) = delete;
    CUnknown& operator=(const CUnknown&) = delete;

    // Answers IID_IUnknown with the non-delegating face; anything else stores null and gives
    // E_NOINTERFACE. A derived class answers its own interfaces first.
    HRESULT STDMETHODCALLTYPE NondelegatingQueryInterface(REFIID riid, void** ppv) override;
    ULONG STDMETHODCALLTYPE NondelegatingAddRef() override;
    // Deletes the object at the last reference, after FinalRelease.
    ULONG STDMETHODCALLTYPE NondelegatingRelease() override;

    virtual ~CUnknown();

    // Second stage of construction, called by the factory; a failure destroys the object.
    virtual HRESULT Init();

    // Called before the object is deleted. Sets the count back to 1, so that references taken and
    // dropped while members go down cannot delete it a second time.
    virtual void FinalRelease();

protected:
    IUnknown* OuterUnknown() const { return m_pUnknownOuter; }

private:
    LONG m_cRef = 1;
    IUnknown* m_pUnknownOuter;
};
