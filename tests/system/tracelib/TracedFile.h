// The built trace library as a module uses it, and the file that it writes.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

#include "support/TempFolder.h"

using TraceProc = void(WINAPI*)(unsigned long, unsigned long, unsigned long, const char*);

// Of the build, "..\tracelib\qnztraceX64.dll" from this program.
std::wstring BuiltTraceLibrary();
// Full path of a file beside this program.
std::wstring BesideThisProgram(const std::wstring& name);

// A variable of this process's environment, for as long as the object lives.
class CVariable
{
public:
    CVariable(const wchar_t* pszName, const std::wstring& value) : m_pszName(pszName)
    {
        SetEnvironmentVariableW(pszName, value.c_str());
    }
    ~CVariable() { SetEnvironmentVariableW(m_pszName, nullptr); }
    CVariable(const CVariable&) = delete;
    CVariable& operator=(const CVariable&) = delete;

private:
    const wchar_t* const m_pszName;
};

class CLoadedTraceLibrary
{
public:
    explicit CLoadedTraceLibrary(const std::wstring& path = BuiltTraceLibrary());
    // Frees it.
    ~CLoadedTraceLibrary();
    CLoadedTraceLibrary(const CLoadedTraceLibrary&) = delete;
    CLoadedTraceLibrary& operator=(const CLoadedTraceLibrary&) = delete;

    HMODULE Module() const { return m_hModule; }
    void Piece(const std::string& piece, unsigned long level = 2) const;
    // The text as the one item of a record, in as many pieces as it takes.
    void Write(const std::string& text, unsigned long level = 2) const;
    // Only once. True when the library has gone.
    bool Free();

private:
    HMODULE m_hModule;
    TraceProc m_write;
};

// One line of a trace file, taken apart. Empty texts where it has no such part.
struct TracedLine
{
    std::string strTime;
    std::string strLevel;
    std::string strProcess;
    std::string strThread;
    std::string strText;
};

// A trace file in a folder of the test's own, which the environment names meanwhile.
class CTracedFile
{
public:
    const CTempFolder& Folder() const { return m_folder; }
    std::wstring Path() const { return m_folder.Wide() + L"\\t.log"; }

    // All lines, the oldest first, those set aside included. A last line without its end is a failure.
    std::vector<TracedLine> Lines() const;
    // The texts of Lines but for the library's notes.
    std::vector<std::string> Texts() const;
    // The texts of the library's notes.
    std::vector<std::string> Notes() const;

private:
    CTempFolder m_folder;
    CVariable m_variable{L"QNZTRACE_FILE", Path()};
};
