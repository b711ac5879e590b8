// The rows of memory, text and texts of the host, and of the functions that are left alone.
#include <windows.h>

#include <oleauto.h>

#include <cstdarg>
#include <cstdlib>
#include <cwchar>

#include "support/calls/CallRows.h"

namespace
{

constexpr char kBlock[] = "block";
constexpr char kText[] = "BSTR";
// Every text, body and object is in memory: a post may be refused, an object not made, an answer not decoded.
constexpr char kWithoutMemory[] = "9NPE2";

void LeaveAlone(std::vector<CCallRow>& rows, const char* pszReason, std::initializer_list<const char*> names)
{
    for (const char* pszName : names)
    {
        CCallRow row;
        row.name = pszName;
        row.reason = pszReason;
        rows.push_back(row);
    }
}

// Of builds that nobody ships.
void AddBuildRows([[maybe_unused]] std::vector<CCallRow>& rows)
{
#ifdef KVHTTP_GUARDED_HEAP
    LeaveAlone(rows, "of the guarded heap, which asks malloc first",
               {"VirtualAlloc", "VirtualFree", "_exit", "fflush"});
#endif
#ifndef NDEBUG
    LeaveAlone(rows, "only when an object is used on another thread than its owner's", {"DebugBreak"});
    LeaveAlone(rows, "of the compiler's runtime, without optimisation", {"_vsnprintf", "fgetwc", "getc"});
#endif
}

}  // namespace

void AddRuntimeRows(std::vector<CCallRow>& rows)
{
    const auto opened = [](CLedger& ledger, void* block, auto...) { ledger.Open(kBlock, block); };
    rows.push_back(Row<"malloc", void*(size_t)>(Fails("no memory", nullptr, ERROR_SUCCESS, kWithoutMemory),
                                                After(opened)));
    rows.push_back(Row<"calloc", void*(size_t, size_t)>(
        Fails("no memory", nullptr, ERROR_SUCCESS, kWithoutMemory), After(opened)));
    rows.push_back(Row<"realloc", void*(void*, size_t)>(
        Fails("no memory", nullptr, ERROR_SUCCESS, kWithoutMemory),
        // Before the call: behind it somebody else may have the address.
        Before([](CLedger& ledger, void* block, size_t) { ledger.CloseIfKnown(kBlock, block); }),
        After([](CLedger& ledger, void* grown, void* block, size_t)
              { ledger.Open(kBlock, grown != nullptr ? grown : block); })));
    rows.push_back(Row<"free", void(void*)>(
        Because("cannot fail"),
        Before([](CLedger& ledger, void* block) { ledger.CloseIfKnown(kBlock, block); })));

    // Told as a crash, with the places.
    constexpr DWORD kAborted = 0xE0000AB0;
    rows.push_back(Row<"abort", void()>(
        Because("is never called"),
        Before([](CLedger&) { RaiseException(kAborted, EXCEPTION_NONCONTINUABLE, 0, nullptr); })));

    rows.push_back(Row<"SysAllocString", decltype(SysAllocString)>(
        Fails("no memory", nullptr, ERROR_SUCCESS, "E"),
        After([](CLedger& ledger, BSTR text, auto...) { ledger.Open(kText, text); })));
    rows.push_back(Row<"SysAllocStringByteLen", decltype(SysAllocStringByteLen)>(
        Fails("no memory", nullptr, ERROR_SUCCESS, "E"),
        After([](CLedger& ledger, BSTR text, auto...) { ledger.Open(kText, text); })));
    rows.push_back(Row<"SysFreeString", decltype(SysFreeString)>(
        Because("cannot fail"), Before([](CLedger& ledger, BSTR text) { ledger.Close(kText, text); })));

    rows.push_back(Row<"MultiByteToWideChar", decltype(MultiByteToWideChar)>(
        Fails("no such character", 0, ERROR_NO_UNICODE_TRANSLATION, "9E"),
        Fails("does not fit", 0, ERROR_INSUFFICIENT_BUFFER, "9E")));
    // A form whose size cannot be told is sent without a body.
    rows.push_back(Row<"WideCharToMultiByte", decltype(WideCharToMultiByte)>(
        Fails("no such character", 0, ERROR_NO_UNICODE_TRANSLATION, "9e"),
        Fails("does not fit", 0, ERROR_INSUFFICIENT_BUFFER, "9e")));
    rows.push_back(Row<"_vsnwprintf", int(wchar_t*, size_t, const wchar_t*, va_list)>(
        Fails("does not fit", -1, ERROR_SUCCESS, "9")));
}

void AddUntouchedRows(std::vector<CCallRow>& rows)
{
    LeaveAlone(rows, "cannot fail",
               {"GetCurrentProcess",
                "GetCurrentThreadId",
                "GetLastError",
                "SetLastError",
                "SwitchToThread",
                "OutputDebugStringW",
                "DispatchMessageW",
                "PostQuitMessage",
                "SysStringByteLen",
                "_strnicmp",
                "_wcsicmp",
                "_wsplitpath",
                "_wtoi",
                "_wtol",
                "atoi",
                "memchr",
                "memcmp",
                "memcpy",
                "memmove",
                "memset",
                "strchr",
                "strcmp",
                "strlen",
                "strncmp",
                "strstr",
                "wcschr",
                "wcscmp",
                "wcslen",
                "wcsncmp",
                "wcsspn",
                "wcsstr",
                "_wcslwr",
                "iswdigit",
                "lstrlenA",
                "lstrlenW"});
    LeaveAlone(rows, "cannot fail on a system that runs this module",
               {"QueryPerformanceCounter", "QueryPerformanceFrequency"});
    LeaveAlone(rows, "only when the module is loaded",
               {"DisableThreadLibraryCalls", "_initterm", "VirtualProtect"});
    AddBuildRows(rows);
    LeaveAlone(rows, "only with a window of its own, which nothing makes", {"DestroyWindow"});
    LeaveAlone(rows, "only at registration",
               {"RegCreateKeyExW", "RegDeleteKeyW", "RegEnumKeyExW", "RegSetValueExW", "StringFromCLSID",
                "CoTaskMemFree"});
    LeaveAlone(rows, "of the compiler's runtime",
               {"CreateSemaphoreW",
                "ReleaseSemaphore",
                "IsDBCSLeadByteEx",
                "LocalFree",
                "RaiseException",
                "RtlCaptureContext",
                "RtlLookupFunctionEntry",
                "RtlUnwindEx",
                "RtlVirtualUnwind",
                "TlsAlloc",
                "TlsFree",
                "TlsGetValue",
                "TlsSetValue",
                "___lc_codepage_func",
                "___mb_cur_max_func",
                "__iob_func",
                "_amsg_exit",
                "_errno",
                "_lock",
                "_unlock",
                "fputc",
                "fputs",
                "fwrite",
                "localeconv",
                "strerror",
                "vfprintf",
                "_read",
                "_close"});
    LeaveAlone(rows, "of the compiler's runtime, from GCC 14 on",
               {"FormatMessageA", "GetThreadId", "TryEnterCriticalSection", "getenv", "strtoul"});
}
