// Stands in for the trace library beside this test program and keeps the records that the product writes.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

#include "support/ImportPatch.h"

class CRecordedTrace
{
public:
    CRecordedTrace();
    ~CRecordedTrace();
    CRecordedTrace(const CRecordedTrace&) = delete;
    CRecordedTrace& operator=(const CRecordedTrace&) = delete;

    // "level|text" each, in their order.
    std::vector<std::string> m_records;

private:
    static HMODULE WINAPI ScriptedLoadLibrary(LPCWSTR pszPath);
    static FARPROC WINAPI ScriptedGetProcAddress(HMODULE hModule, LPCSTR pszName);

    CImportPatch m_load;
    CImportPatch m_find;
};

// The record of a text without variables, at the level of progress.
inline std::string Progress(const std::string& text)
{
    return "2| " + text + ",\n";
}
