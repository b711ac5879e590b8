// The rows of files, threads, libraries, windows and text conversion.
#include <windows.h>

#include <process.h>
#include <shlwapi.h>

#include "support/calls/CallRows.h"

namespace
{

constexpr char kHandle[] = "handle";
constexpr char kLibrary[] = "library";

void AddFileRows(std::vector<CCallRow>& rows)
{
    rows.push_back(Row<"CreateFileW", decltype(CreateFileW)>(
        CMeeting{}, Fails("refused", INVALID_HANDLE_VALUE, ERROR_ACCESS_DENIED, "7"),
        Fails("disk full", INVALID_HANDLE_VALUE, ERROR_DISK_FULL, "7"),
        After(
            [](CLedger& ledger, HANDLE file, auto...)
            {
                if (file != INVALID_HANDLE_VALUE)
                {
                    ledger.Open(kHandle, file);
                }
            })));
    rows.push_back(Row<"WriteFile", decltype(WriteFile)>(
        CMeeting{},
        Does(
            "disk full",
            [](auto*, HANDLE, LPCVOID, DWORD, LPDWORD pcbWritten, LPOVERLAPPED)
            {
                *pcbWritten = 0;
                SetLastError(ERROR_DISK_FULL);
                return FALSE;
            },
            "s"),
        Does(
            "short count",
            [](auto* pfnNext, HANDLE file, LPCVOID data, DWORD, LPDWORD pcbWritten, LPOVERLAPPED overlapped)
            { return pfnNext(file, data, 1, pcbWritten, overlapped); }, "s")));
    rows.push_back(Row<"DeleteFileW", decltype(DeleteFileW)>(
        CMeeting{}, Fails("refused", FALSE, ERROR_SHARING_VIOLATION, "R"),
        Because("a file that cannot be deleted stays")));
    rows.push_back(Row<"CloseHandle", decltype(CloseHandle)>(
        CMeeting{}, Lies("says it is not open", FALSE, ERROR_INVALID_HANDLE, "9"),
        Before(
            [](CLedger& ledger, HANDLE handle)
            {
                // The compiler's runtime closes what it has opened when the module was loaded.
                DWORD dwFlags = 0;
                const bool bOpen = GetHandleInformation(handle, &dwFlags) != FALSE;
                bOpen ? ledger.CloseIfKnown(kHandle, handle) : ledger.Close(kHandle, handle);
            })));
}

void AddThreadRows(std::vector<CCallRow>& rows)
{
    rows.push_back(Row<"_beginthreadex", decltype(_beginthreadex)>(
        Fails("none", uintptr_t{0}, ERROR_NOT_ENOUGH_MEMORY, "2"),
        After([](CLedger& ledger, uintptr_t handle, auto...)
              { ledger.Open(kHandle, reinterpret_cast<void*>(handle)); })));
    rows.push_back(Row<"DuplicateHandle", decltype(DuplicateHandle)>(
        Fails("no memory", FALSE, ERROR_NO_SYSTEM_RESOURCES, "R"),
        After(
            [](CLedger& ledger, BOOL bDone, HANDLE, HANDLE, HANDLE, LPHANDLE phTarget, auto...)
            {
                if (bDone)
                {
                    ledger.Open(kHandle, *phTarget);
                }
            })));
    rows.push_back(Row<"GetExitCodeThread", decltype(GetExitCodeThread)>(
        Fails("refused", FALSE, ERROR_ACCESS_DENIED, "R")));
    rows.push_back(
        Row<"TerminateThread", decltype(TerminateThread)>(Fails("refused", FALSE, ERROR_ACCESS_DENIED, "R")));
    rows.push_back(Row<"WaitForSingleObject", decltype(WaitForSingleObject)>(
        Fails("failed", DWORD{WAIT_FAILED}, ERROR_ACCESS_DENIED, "R")));
    rows.push_back(Row<"GetModuleHandleExW", decltype(GetModuleHandleExW)>(
        CMeeting{}, Fails("none", FALSE, ERROR_MOD_NOT_FOUND, "9"),
        Because("its own module is always there: without the reference a host that frees the module right "
                "after the release could unload it under the worker's last instructions"),
        After(
            [](CLedger& ledger, BOOL bDone, DWORD, LPCWSTR, HMODULE* phModule)
            {
                if (bDone)
                {
                    ledger.Open("reference to the module", *phModule);
                }
            })));
    rows.push_back(Row<"FreeLibraryAndExitThread", decltype(FreeLibraryAndExitThread)>(
        CMeeting{}, Because("never returns"),
        Before([](CLedger& ledger, HMODULE hModule, DWORD)
               { ledger.Close("reference to the module", hModule); })));
    rows.push_back(Row<"GetTickCount", decltype(GetTickCount)>(CMeeting{}, Because("cannot fail")));
    rows.push_back(Row<"Sleep", decltype(Sleep)>(Because("cannot fail")));
    rows.push_back(Row<"InitializeCriticalSection", decltype(InitializeCriticalSection)>(
        Because("cannot fail"),
        After([](CLedger& ledger, auto, LPCRITICAL_SECTION pcs) { ledger.Open("section", pcs); })));
    rows.push_back(Row<"DeleteCriticalSection", decltype(DeleteCriticalSection)>(
        Because("cannot fail"),
        Before([](CLedger& ledger, LPCRITICAL_SECTION pcs) { ledger.CloseIfKnown("section", pcs); })));
    rows.push_back(
        Row<"EnterCriticalSection", decltype(EnterCriticalSection)>(CMeeting{}, Because("cannot fail")));
    rows.push_back(
        Row<"LeaveCriticalSection", decltype(LeaveCriticalSection)>(CMeeting{}, Because("cannot fail")));
}

void AddWindowRows(std::vector<CCallRow>& rows)
{
    rows.push_back(Row<"IsWindow", decltype(IsWindow)>(
        CMeeting{}, Fails("it is none", FALSE, ERROR_INVALID_WINDOW_HANDLE, "9")));
    rows.push_back(Row<"GetDesktopWindow", decltype(GetDesktopWindow)>(
        CMeeting{}, Fails("none", nullptr, ERROR_SUCCESS, "9")));
    rows.push_back(Row<"LoadCursorW", decltype(LoadCursorW)>(
        Fails("none", nullptr, ERROR_RESOURCE_NAME_NOT_FOUND, "9")));
    rows.push_back(
        Row<"SetCursor", decltype(SetCursor)>(Because("cannot fail: null is the answer without a cursor")));
    rows.push_back(Row<"PeekMessageW", decltype(PeekMessageW)>(
        Because("cannot fail: FALSE is the answer without a message")));
    rows.push_back(Row<"MsgWaitForMultipleObjects", decltype(MsgWaitForMultipleObjects)>(
        Fails("failed", DWORD{WAIT_FAILED}, ERROR_INVALID_HANDLE, "R"),
        Fails("no memory", DWORD{WAIT_FAILED}, ERROR_NOT_ENOUGH_MEMORY, "R"),
        Fails("abandoned", DWORD{WAIT_ABANDONED_0}, ERROR_SUCCESS, "R")));
}

FARPROC WINAPI FindFunction(HMODULE hModule, LPCSTR pszName)
{
    using Thunk = CThunk<"GetProcAddress", decltype(GetProcAddress)>;
    const FARPROC pfn = Thunk::Call(hModule, pszName);
    const CLastErrorKept kept;
    CPlatformCalls* const pCalls = CPlatformCalls::Current();
    return pCalls != nullptr ? pCalls->Wrap(pszName, pfn) : pfn;
}

void AddLibraryRows(std::vector<CCallRow>& rows)
{
    rows.push_back(Row<"LoadLibraryW", decltype(LoadLibraryW)>(
        Fails("not found", nullptr, ERROR_MOD_NOT_FOUND, "9"),
        Fails("no memory", nullptr, ERROR_NOT_ENOUGH_MEMORY, "9"),
        After([](CLedger& ledger, HMODULE hModule, auto...) { ledger.Open(kLibrary, hModule); })));
    rows.push_back(Row<"FreeLibrary", decltype(FreeLibrary)>(
        Lies("says it is none", FALSE, ERROR_INVALID_HANDLE, "9"),
        Before([](CLedger& ledger, HMODULE hModule) { ledger.Close(kLibrary, hModule); })));
    rows.push_back(Row<"GetProcAddress", decltype(GetProcAddress)>(
        CMeeting{}, Leaving(Fails("not found", nullptr, ERROR_PROC_NOT_FOUND, "9"), "1 profile",
                            "without the function a profile cannot be unloaded")));
    rows.back().pThunk = reinterpret_cast<void*>(&FindFunction);
    rows.push_back(Row<"GetModuleHandleW", decltype(GetModuleHandleW)>(
        Fails("not found", nullptr, ERROR_MOD_NOT_FOUND, "9")));
    rows.push_back(Row<"GetModuleFileNameW", decltype(GetModuleFileNameW)>(
        Fails("none", DWORD{0}, ERROR_MOD_NOT_FOUND, "9"), Does(
                                                               "too long",
                                                               [](auto*, HMODULE, LPWSTR pszPath, DWORD cch)
                                                               {
                                                                   std::fill_n(pszPath, cch, L'x');
                                                                   SetLastError(ERROR_INSUFFICIENT_BUFFER);
                                                                   return cch;
                                                               },
                                                               "9")));
    rows.push_back(Row<"GetSystemDirectoryW", decltype(GetSystemDirectoryW)>(
        Fails("none", UINT{0}, ERROR_NOT_ENOUGH_MEMORY, "9"),
        Fails("too long", UINT{MAX_PATH + 1}, ERROR_SUCCESS, "9")));
    rows.push_back(Row<"PathAppendW", decltype(PathAppendW)>(Fails("too long", FALSE, ERROR_SUCCESS, "9")));
    rows.push_back(Row<"PathRemoveFileSpecW", decltype(PathRemoveFileSpecW)>(
        Fails("nothing to remove", FALSE, ERROR_SUCCESS, "9")));
    rows.push_back(
        Row<"VirtualQuery", decltype(VirtualQuery)>(Fails("none", size_t{0}, ERROR_INVALID_PARAMETER, "9")));
    // The trace library's own function.
    rows.push_back(Row<"QNZTRACERAWA", void(unsigned long, unsigned long, unsigned long, const char*)>(
        CMeeting{}, Because("gives no result")));
}

}  // namespace

void AddSystemRows(std::vector<CCallRow>& rows)
{
    AddFileRows(rows);
    AddThreadRows(rows);
    AddWindowRows(rows);
    AddLibraryRows(rows);
}
