// Scripts the version that the system reports to this test program.
#pragma once

#include <windows.h>

#include <set>
#include <vector>

#include "support/ImportPatch.h"

class CReportedVersion
{
public:
    CReportedVersion(DWORD dwMajor, DWORD dwMinor, DWORD dwPlatformId = VER_PLATFORM_WIN32_NT)
    {
        s_pCurrent = this;
        Set(dwMajor, dwMinor, dwPlatformId);
    }
    ~CReportedVersion() { s_pCurrent = nullptr; }
    CReportedVersion(const CReportedVersion&) = delete;
    CReportedVersion& operator=(const CReportedVersion&) = delete;

    void Set(DWORD dwMajor, DWORD dwMinor, DWORD dwPlatformId = VER_PLATFORM_WIN32_NT)
    {
        m_dwMajor = dwMajor;
        m_dwMinor = dwMinor;
        m_dwPlatformId = dwPlatformId;
    }

    // Records of these sizes are refused, and left with a version that must not be believed.
    std::set<DWORD> m_refusedSizes;
    // The sizes of the records that were asked for.
    std::vector<DWORD> m_sizes;

private:
    static BOOL WINAPI Scripted(OSVERSIONINFOW* pInformation)
    {
        const DWORD dwSize = pInformation->dwOSVersionInfoSize;
        s_pCurrent->m_sizes.push_back(dwSize);
        const bool bRefused = s_pCurrent->m_refusedSizes.count(dwSize) != 0;
        pInformation->dwMajorVersion = bRefused ? 6 : s_pCurrent->m_dwMajor;
        pInformation->dwMinorVersion = bRefused ? 1 : s_pCurrent->m_dwMinor;
        pInformation->dwPlatformId = bRefused ? VER_PLATFORM_WIN32_NT : s_pCurrent->m_dwPlatformId;
        SetLastError(bRefused ? ERROR_INSUFFICIENT_BUFFER : ERROR_SUCCESS);
        return bRefused ? FALSE : TRUE;
    }

    static inline CReportedVersion* s_pCurrent = nullptr;

    DWORD m_dwMajor = 0;
    DWORD m_dwMinor = 0;
    DWORD m_dwPlatformId = 0;
    CImportPatch m_patch{GetModuleHandleW(nullptr), "GetVersionExW", Scripted};
};
