#include "trace/Trace.h"

#include <windows.h>

#include <comdef.h>

#include <atomic>
#include <cstdarg>
#include <new>
#include <string>

#include "base/FirstUse.h"
#include "trace/DLLHandle.h"

namespace
{

constexpr wchar_t kTraceLibrary[] = L"qnztraceX64.dll";
constexpr char kTraceExport[] = "QNZTRACERAWA";
constexpr size_t kPieceLength = 2047;
constexpr const TraceVarPair* kEndOfPairs = nullptr;

HMODULE OwnModule()
{
    MEMORY_BASIC_INFORMATION information = {};
    VirtualQuery(reinterpret_cast<const void*>(&OwnModule), &information, sizeof(information));
    return static_cast<HMODULE>(information.AllocationBase);
}

std::atomic<TraceProc> g_write{nullptr};
std::atomic<bool> g_bLibraryGone{false};

// The one trace library of the process; freed when the module is unloaded. What is traced after that, by
// objects that outlive the module's own, is dropped.
struct TraceLibrary
{
    TraceLibrary() { handle.Load(kTraceLibrary, OwnModule(), 1); }
    ~TraceLibrary()
    {
        g_bLibraryGone = true;
        g_write = nullptr;
    }
    TraceLibrary(const TraceLibrary&) = delete;
    TraceLibrary& operator=(const TraceLibrary&) = delete;

    CDLLHandle handle;
};
constinit CFirstUse<TraceLibrary> g_library;

HMODULE LoadedTraceLibrary()
{
    if (g_bLibraryGone)
    {
        return nullptr;
    }
    return g_library.Get().handle.Get();
}

void AppendPair(std::string& record, const TraceVarPair& pair)
{
    if (pair.pszName != nullptr)
    {
        record.append(pair.pszName).append(1, '=');
    }
    if (pair.pValue != nullptr)
    {
        const std::string& strValue = pair.pValue->Text();
        record.reserve(record.size() + strValue.size() + 2);  // with the ends of pair and record
        record.append(strValue);
    }
    record.append(1, ',');
}

void WriteInPieces(TraceProc write, unsigned long level, std::string& text)
{
    size_t begin = 0;
    for (; text.size() - begin > kPieceLength; begin += kPieceLength)
    {
        const size_t end = begin + kPieceLength;
        const char next = text[end];
        text[end] = '\0';
        write(level, 0, 0, text.c_str() + begin);
        text[end] = next;
    }
    if (begin < text.size())
    {
        write(level, 0, 0, text.c_str() + begin);
    }
}

template <typename Value>
void WriteTextVar(unsigned long level, const wchar_t* text, const char* name, Value value)
try
{
    if (!HasTraceLibrary())
    {
        return;
    }
    const CVarAdapter varValue(value);
    const TraceVarPair pairValue = {name, &varValue};
    if (text == nullptr)
    {
        TraceVars(level, "", &pairValue, kEndOfPairs);
        return;
    }
    const CVarAdapter varText(text);
    const TraceVarPair pairText = {nullptr, &varText};
    TraceVars(level, "", &pairText, &pairValue, kEndOfPairs);
}
catch (const _com_error&)
{
    // Tracing never reports a failure: the record is lost.
}

}  // namespace

TraceProc GetTraceProc()
{
    if (const TraceProc write = g_write)
    {
        return write;
    }
    const HMODULE hLibrary = LoadedTraceLibrary();
    if (hLibrary == nullptr)
    {
        return nullptr;
    }
    g_write = reinterpret_cast<TraceProc>(reinterpret_cast<void*>(GetProcAddress(hLibrary, kTraceExport)));
    return g_write;
}

bool HasTraceLibrary()
{
    return LoadedTraceLibrary() != nullptr;
}

void TraceVars(unsigned long level, const char* message, const TraceVarPair* first, ...)
{
    const TraceProc write = GetTraceProc();
    if (write == nullptr)
    {
        return;
    }
    va_list pairs;
    va_start(pairs, first);
    try
    {
        std::string record;
        if (message != nullptr)
        {
            record.append(message).append(1, ' ');
        }
        for (const TraceVarPair* pair = first; pair != nullptr; pair = va_arg(pairs, const TraceVarPair*))
        {
            AppendPair(record, *pair);
        }
        record.append(1, '\n');
        WriteInPieces(write, level, record);
    }
    catch (const std::bad_alloc&)
    {
        // Tracing never reports a failure: the record is lost.
    }
    va_end(pairs);
}

void TraceText(unsigned long level, const wchar_t* text)
try
{
    if (!HasTraceLibrary())
    {
        return;
    }
    const CVarAdapter varText(text);
    const TraceVarPair pairText = {nullptr, &varText};
    TraceVars(level, "", &pairText, kEndOfPairs);
}
catch (const _com_error&)
{
    // Tracing never reports a failure: the record is lost.
}

void TraceTextVar(unsigned long level, const wchar_t* text, const char* name, const wchar_t* value)
{
    WriteTextVar(level, text, name, value);
}

void TraceTextVar(unsigned long level, const wchar_t* text, const char* name, unsigned long value)
{
    WriteTextVar(level, text, name, value);
}

void TraceTextVar(unsigned long level, const wchar_t* text, const char* name, const void* value)
{
    WriteTextVar(level, text, name, value);
}
