// What comes back from an exchange of CClient, and the files that answers go to.
#pragma once

#include <windows.h>

#include <exception>
#include <string>
#include <utility>

#include "kvHttp/Component.h"
#include "kvHttp/HttpRaw.h"
#include "kvHttp/Outcome.h"

namespace kvHttp
{

// What Answer::OrThrow throws.
class CFailure : public std::exception
{
public:
    CFailure(Outcome outcome, HRESULT hr) : m_outcome(outcome), m_hr(hr)
    {
        for (const wchar_t* psz = Describe(outcome); *psz != L'\0'; ++psz)
        {
            m_strWhat += static_cast<char>(*psz);
        }
    }

    Outcome Which() const noexcept { return m_outcome; }
    HRESULT Result() const noexcept { return m_hr; }
    const char* what() const noexcept override { return m_strWhat.c_str(); }

private:
    Outcome m_outcome;
    HRESULT m_hr;
    std::string m_strWhat;
};

struct Answer
{
    Outcome outcome = Outcome::Idle;
    HRESULT hr = S_OK;                        // what the platform said where there is no component
    unsigned long nStatus = REQ_STATUS_IDLE;  // the last HttpRequestStatus
    std::wstring strText;                     // where no file was named. It ends at the first NUL byte
    std::string strBytes;                     // of CClient::PostForBytes
    unsigned long long nFileBytes = 0;        // where a file was named
    unsigned long long nElapsedMs = 0;

    explicit operator bool() const noexcept { return outcome == Outcome::Done; }

    // A sentence about the outcome.
    const wchar_t* Reason() const noexcept { return Describe(outcome); }

#if defined(__cpp_exceptions) || defined(_CPPUNWIND)
    // For hosts that prefer exceptions: this answer, or a CFailure where there is none.
    const Answer& OrThrow() const&
    {
        if (!*this)
        {
            throw CFailure(outcome, hr);
        }
        return *this;
    }
    Answer OrThrow() &&
    {
        static_cast<const Answer&>(*this).OrThrow();
        return std::move(*this);
    }
#endif

    // Takes the text over from the component; one without a byte counts as none there. Without memory the
    // component raises an exception, which is caught where the host's compiler knows it.
    void TakeText(IHttpRaw& httpRaw) noexcept
    {
        BSTR bstrText = nullptr;
        KVHTTP_TRY
        {
            if (SUCCEEDED(httpRaw.GetResponseData(&bstrText)) && bstrText != nullptr)
            {
                strText.assign(bstrText, SysStringLen(bstrText));
            }
        }
        KVHTTP_CATCH(...)
        {
            outcome = Outcome::NoMemory;
        }
        SysFreeString(bstrText);
    }
};

// The component holds the file alone while it writes: only the size can be asked for. 0 where there is none.
inline unsigned long long FileSize(const wchar_t* pszPath) noexcept
{
    WIN32_FILE_ATTRIBUTE_DATA data = {};
    if (*pszPath == L'\0' || !GetFileAttributesExW(pszPath, GetFileExInfoStandard, &data))
    {
        return 0;
    }
    return (static_cast<unsigned long long>(data.nFileSizeHigh) << 32) + data.nFileSizeLow;
}

// An existing file stays as it is; where there is none, none stays behind. The component makes files anew,
// which Windows refuses for hidden and system files.
inline bool CanBeWritten(const wchar_t* pszPath) noexcept
{
    const DWORD dwAttributes = GetFileAttributesW(pszPath);
    if (dwAttributes != INVALID_FILE_ATTRIBUTES &&
        (dwAttributes & (FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM)) != 0)
    {
        return false;
    }
    HANDLE hFile =
        CreateFileW(pszPath, GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (hFile == INVALID_HANDLE_VALUE && GetLastError() == ERROR_FILE_NOT_FOUND)
    {
        hFile = CreateFileW(pszPath, GENERIC_WRITE | DELETE, 0, nullptr, CREATE_NEW,
                            FILE_FLAG_DELETE_ON_CLOSE, nullptr);
    }
    return hFile != INVALID_HANDLE_VALUE && CloseHandle(hFile);
}

// Of a path as the program means it now. An empty one stays empty.
inline std::wstring FullPath(const std::wstring& path)
{
    std::wstring full(MAX_PATH, L'\0');
    DWORD dwLength = 0;
    while (!path.empty() && (dwLength = GetFullPathNameW(path.c_str(), static_cast<DWORD>(full.size()),
                                                         &full[0], nullptr)) >= full.size())
    {
        full.resize(dwLength);
    }
    full.resize(dwLength);
    return dwLength != 0 ? full : path;
}

// A file of this object's own, empty at first. The path is empty where none can be made.
class CTemporaryFile
{
public:
    CTemporaryFile() : m_strPath(MAX_PATH, L'\0')
    {
        wchar_t szFolder[MAX_PATH + 1] = {};
        const bool bMade = GetTempPathW(MAX_PATH + 1, szFolder) != 0 &&
                           GetTempFileNameW(szFolder, L"kvh", 0, &m_strPath[0]) != 0;
        m_strPath.resize(bMade ? m_strPath.find(L'\0') : 0);
    }
    ~CTemporaryFile() { DeleteFileW(m_strPath.c_str()); }
    CTemporaryFile(const CTemporaryFile&) = delete;
    CTemporaryFile& operator=(const CTemporaryFile&) = delete;

    const std::wstring& Path() const noexcept { return m_strPath; }

    // False when it cannot be read, or not as a whole.
    bool Read(std::string& bytes) const
    {
        const HANDLE hFile =
            CreateFileW(m_strPath.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
        if (hFile == INVALID_HANDLE_VALUE)
        {
            return false;
        }
        const HandleCloser closer{hFile};
        char piece[16384];
        DWORD dwRead = 0;
        bool bGood = true;
        while ((bGood = ReadFile(hFile, piece, sizeof(piece), &dwRead, nullptr) != FALSE) && dwRead != 0)
        {
            bytes.append(piece, dwRead);
        }
        return bGood;
    }

private:
    struct HandleCloser
    {
        HANDLE hFile;
        ~HandleCloser() { CloseHandle(hFile); }
    };

    std::wstring m_strPath;
};

}  // namespace kvHttp
