// The component as a host has it, but made without registration, through the module's DllGetClassObject.
#pragma once

#include <windows.h>

#include <string>

#include "kvHttp/HttpRaw.h"
#include "Poster.h"

class CModule
{
public:
    // A file beside this program, or in a folder there.
    explicit CModule(const std::wstring& name);
    ~CModule();
    CModule(const CModule&) = delete;
    CModule& operator=(const CModule&) = delete;

    IHttpRaw* Create() const;

private:
    const HMODULE m_hModule;
    IClassFactory* m_pFactory = nullptr;
};

class CComponentPoster : public CPoster
{
public:
    explicit CComponentPoster(const CModule& module) : m_pHttpRaw(module.Create()) {}
    ~CComponentPoster() override;
    CComponentPoster(const CComponentPoster&) = delete;
    CComponentPoster& operator=(const CComponentPoster&) = delete;

    void Start(const CTask& task) override;
    bool HasEnded() override;
    void TakeAnswer(const CTask& task) override;
    bool HasAnswer(const CTask& task) const override;

private:
    IHttpRaw* const m_pHttpRaw;
    unsigned long m_status = REQ_STATUS_IDLE;
    BSTR m_bstrAnswer = nullptr;
};

// The folder of this program, with a backslash at its end.
std::wstring ProgramFolder();
