// Writes trace records through the trace library "qnztraceX64.dll", which is looked for beside the
// module and nowhere else. Without it, or without its export, every call here does nothing. Records
// may be written from several threads at once; their order between threads is the library's affair.
#pragma once

#include "trace/VarAdapter.h"

constexpr unsigned long kTraceProgress = 2;
constexpr unsigned long kTraceError = 8;

// Either part may be null.
struct TraceVarPair
{
    const char* pszName;
    const CVarAdapter* pValue;
};

using TraceProc = void(__stdcall*)(unsigned long level, unsigned long, unsigned long, const char* text);

// The library's export, or null. The library is loaded at the first call; one that could not be loaded
// stays away for the life of the process.
TraceProc GetTraceProc();

// False when no record will ever be taken, so that none needs to be made. Loads the library like
// GetTraceProc.
bool HasTraceLibrary();

// Writes one record: the message and a blank (nothing at all for a null message), then "name=value,"
// for each pair up to a null pointer, then a line feed. The list ends with a typed null,
// static_cast<const TraceVarPair*>(nullptr): a bare 0 may be half as wide as a pointer. Raises nothing;
// a record that finds no memory is dropped.
void TraceVars(unsigned long level, const char* message, const TraceVarPair* first, ...);

// One record with an empty message and the text as its one unnamed item. Raises nothing.
void TraceText(unsigned long level, const wchar_t* text);

// One record with an empty message, the text as an unnamed item (left out when null) and then the named
// value: a text, a number or a pointer, as CVarAdapter takes them. Raises nothing.
void TraceTextVar(unsigned long level, const wchar_t* text, const char* name, const wchar_t* value);
void TraceTextVar(unsigned long level, const wchar_t* text, const char* name, unsigned long value);
void TraceTextVar(unsigned long level, const wchar_t* text, const char* name, const void* value);
