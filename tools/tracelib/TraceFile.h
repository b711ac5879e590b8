// The file that the trace library appends to. Several processes may append to one file: each takes a lock at
// a place far behind the file's end for as long as it writes, so that lines stay whole and one of them sets
// the file aside. Used by one thread at a time.
#pragma once

#include <windows.h>

#include <string>
#include <string_view>

#include "base/ScopedHandle.h"

class CTraceFile
{
public:
    // Opens nothing yet. A limit of 0 is none.
    CTraceFile(std::wstring path, ULONGLONG nLimit, unsigned nKeep);

    // Appends whole lines, all or none of them; opens the file first, and makes it where it is missing, but
    // no folder. Sets the file aside before it would grow beyond the limit. False when the lines are not in
    // the file; Error tells why. A file that cannot be opened is tried again only after a while, a device
    // that is full at the next call.
    bool Append(std::string_view lines);

    // The last error of a failed Append.
    DWORD Error() const { return m_dwError; }

    // What a thread that was killed within Append has left locked. Only when no other thread is left.
    void Unlock();

private:
    bool Open();
    bool Lock();
    bool AppendToDisk(std::string_view lines);
    bool Write(std::string_view bytes);
    void SetAside();
    void Truncate(ULONGLONG size);
    ULONGLONG Size() const;
    std::wstring Aside(unsigned number) const { return m_strPath + L"." + std::to_wstring(number); }

    const std::wstring m_strPath;
    const ULONGLONG m_nLimit;
    const unsigned m_nKeep;
    CFileHandle m_file;
    bool m_bDisk = false;
    DWORD m_dwError = ERROR_SUCCESS;
    ULONGLONG m_nextTry = 0;
};
