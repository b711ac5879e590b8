// Traces entry and exit of a function: constructed at its top, it writes "--> name" at once and
// "<-- name" when the scope ends, both at level 2. The name is written as given, punctuation included.
#pragma once

#include <string>

class CAutoFunTrace
{
public:
    // Raises nothing: a name that finds no memory is left out.
    explicit CAutoFunTrace(const char* name);
    // Raises _com_error with E_OUTOFMEMORY when the name cannot be converted.
    explicit CAutoFunTrace(const wchar_t* name);
    virtual ~CAutoFunTrace();
    CAutoFunTrace(const CAutoFunTrace&) = delete;
    CAutoFunTrace& operator=(const CAutoFunTrace&) = delete;

private:
    void Write(const char* arrow) const;

    std::string m_strName;
};
