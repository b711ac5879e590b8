#include "registry/UserProfile.h"

CUserProfile::~CUserProfile()
{
    if (m_pfnUnload != nullptr)
    {
        const DWORD dwLastError = GetLastError();
        m_pfnUnload(m_token.Get(), m_hProfile);
        SetLastError(dwLastError);
    }
}

void CUserProfile::Take(CKernelHandle& token, HANDLE hProfile, UnloadUserProfileProc* pfnUnload)
{
    *m_token.Put() = token.Detach();
    m_hProfile = hProfile;
    m_pfnUnload = pfnUnload;
}
