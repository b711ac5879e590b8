#include "tracelib/TraceFile.h"

#include <algorithm>
#include <new>
#include <utility>
#include <vector>

namespace
{

constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE;
constexpr DWORD kLockOffsetHigh = 0x40000000;  // no file has bytes there
constexpr DWORD kToTheEnd = 0xFFFFFFFF;        // both halves of an offset: behind the last byte
constexpr ULONGLONG kLockPatienceMs = 1000;
constexpr ULONGLONG kTryAgainMs = 2000;
constexpr size_t kCopyBytes = 0x10000;

OVERLAPPED LockPlace()
{
    OVERLAPPED place = {};
    place.OffsetHigh = kLockOffsetHigh;
    return place;
}

bool CopyBytes(HANDLE hFrom, const std::wstring& to)
{
    const CFileHandle target(
        CreateFileW(to.c_str(), GENERIC_WRITE, kShareAll, nullptr, CREATE_ALWAYS, 0, nullptr));
    if (!target || SetFilePointer(hFrom, 0, nullptr, FILE_BEGIN) == INVALID_SET_FILE_POINTER)
    {
        return false;
    }
    std::vector<char> bytes(kCopyBytes);
    DWORD cb = 0;
    while (ReadFile(hFrom, bytes.data(), static_cast<DWORD>(bytes.size()), &cb, nullptr))
    {
        DWORD cbWritten = 0;
        if (cb == 0)
        {
            return true;
        }
        if (!WriteFile(target.Get(), bytes.data(), cb, &cbWritten, nullptr) || cbWritten != cb)
        {
            return false;
        }
    }
    return false;
}

}  // namespace

CTraceFile::CTraceFile(std::wstring path, ULONGLONG nLimit, unsigned nKeep)
    : m_strPath(std::move(path)), m_nLimit(nLimit), m_nKeep(nKeep)
{
}

bool CTraceFile::Append(std::string_view lines)
{
    if (!m_file && !Open())
    {
        return false;
    }
    if (m_bDisk ? AppendToDisk(lines) : Write(lines))
    {
        m_dwError = ERROR_SUCCESS;
        return true;
    }
    return false;
}

void CTraceFile::Unlock()
{
    OVERLAPPED place = LockPlace();
    UnlockFileEx(m_file.Get(), 0, 1, 0, &place);
}

bool CTraceFile::Open()
{
    if (m_nextTry != 0 && GetTickCount64() < m_nextTry)
    {
        return false;
    }
    // Nobody may delete or rename the file meanwhile: what is written then would be lost without a word.
    *m_file.Put() = CreateFileW(m_strPath.c_str(), GENERIC_READ | GENERIC_WRITE, kShareAll, nullptr,
                                OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (!m_file && GetLastError() == ERROR_ACCESS_DENIED)
    {
        // A pipe with one direction.
        *m_file.Put() =
            CreateFileW(m_strPath.c_str(), GENERIC_WRITE, kShareAll, nullptr, OPEN_EXISTING, 0, nullptr);
    }
    if (!m_file)
    {
        m_dwError = GetLastError();
        m_nextTry = GetTickCount64() + kTryAgainMs;
        return false;
    }
    m_bDisk = GetFileType(m_file.Get()) == FILE_TYPE_DISK;
    return true;
}

// Without the lock after a while: its owner may stand in a debugger, and the platform appends in one go.
bool CTraceFile::Lock()
{
    const ULONGLONG end = GetTickCount64() + kLockPatienceMs;
    OVERLAPPED place = LockPlace();
    while (!LockFileEx(m_file.Get(), LOCKFILE_EXCLUSIVE_LOCK | LOCKFILE_FAIL_IMMEDIATELY, 0, 1, 0, &place))
    {
        const DWORD dwError = GetLastError();
        const bool bTaken = dwError == ERROR_LOCK_VIOLATION || dwError == ERROR_IO_PENDING;
        if (!bTaken || GetTickCount64() >= end)
        {
            return false;
        }
        Sleep(1);
    }
    return true;
}

bool CTraceFile::AppendToDisk(std::string_view lines)
{
    const bool bLocked = Lock();
    ULONGLONG size = Size();
    if (bLocked && m_nLimit != 0 && size != 0 && size + lines.size() > m_nLimit)
    {
        try
        {
            SetAside();
        }
        catch (const std::bad_alloc&)
        {
            // The next line tries again.
        }
        size = Size();
    }
    const bool bWritten = Write(lines);
    if (!bWritten && bLocked)
    {
        Truncate(size);  // a part of a line would spoil the next one
    }
    if (bLocked)
    {
        Unlock();
    }
    return bWritten;
}

bool CTraceFile::Write(std::string_view bytes)
{
    OVERLAPPED place = {};
    place.Offset = kToTheEnd;
    place.OffsetHigh = kToTheEnd;
    DWORD cb = 0;
    const bool bGood = WriteFile(m_file.Get(), bytes.data(), static_cast<DWORD>(bytes.size()), &cb,
                                 m_bDisk ? &place : nullptr) != FALSE;
    if (bGood && cb == bytes.size())
    {
        return true;
    }
    m_dwError = bGood ? ERROR_DISK_FULL : GetLastError();
    return false;
}

// The bytes are copied, not the file renamed: other processes hold it open, and go on with the same file.
// Where the copy fails the old lines are lost, since the disk is not to be filled.
void CTraceFile::SetAside()
{
    if (m_nKeep != 0)
    {
        DeleteFileW(Aside(m_nKeep).c_str());
        for (unsigned number = m_nKeep; number > 1; --number)
        {
            MoveFileExW(Aside(number - 1).c_str(), Aside(number).c_str(), MOVEFILE_REPLACE_EXISTING);
        }
        CopyBytes(m_file.Get(), Aside(1));
    }
    Truncate(0);
}

void CTraceFile::Truncate(ULONGLONG size)
{
    LARGE_INTEGER place = {};
    place.QuadPart = static_cast<LONGLONG>(size);
    if (SetFilePointerEx(m_file.Get(), place, nullptr, FILE_BEGIN))
    {
        SetEndOfFile(m_file.Get());
    }
}

ULONGLONG CTraceFile::Size() const
{
    LARGE_INTEGER size = {};
    return GetFileSizeEx(m_file.Get(), &size) ? static_cast<ULONGLONG>(size.QuadPart) : 0;
}
