// A class of the system that a script, too, would post with: MSXML2.XMLHTTP.6.0 and those like it, used by
// their names at run time. A single exchange is a synchronous one; of many at once each runs by itself.
#pragma once

#include <windows.h>

#include <oaidl.h>

#include <initializer_list>

#include "Poster.h"

class CSystemClass : public CPoster
{
public:
    // Raises CFailure where the system has no such class.
    CSystemClass(const wchar_t* pszProgId, bool bManyAtOnce);
    ~CSystemClass() override;
    CSystemClass(const CSystemClass&) = delete;
    CSystemClass& operator=(const CSystemClass&) = delete;

    void Start(const CTask& task) override;
    bool HasEnded() override;
    void TakeAnswer(const CTask& task) override;
    bool HasAnswer(const CTask& task) const override;

private:
    // The arguments stand in reverse, as the platform wants them, and are cleared.
    VARIANT Invoke(const wchar_t* pszName, WORD wFlags, std::initializer_list<VARIANT> arguments = {});
    long Number(const wchar_t* pszName);

    IDispatch* m_pObject = nullptr;
    const bool m_bWinHttp;
    const bool m_bManyAtOnce;
    BSTR m_bstrAnswer = nullptr;
    long m_status = 0;
};
