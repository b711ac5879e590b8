// A user's profile that this process has loaded to read the settings in it.
#pragma once

#include <windows.h>

#include "base/ScopedHandle.h"

class CUserProfile
{
public:
    using UnloadUserProfileProc = BOOL WINAPI(HANDLE hToken, HANDLE hProfile);

    CUserProfile() = default;
    // Unloads the profile, which closes the root of its hive. Every key below it must be closed by then: an
    // open one would keep the hive loaded, and the user from signing out.
    ~CUserProfile();
    CUserProfile(const CUserProfile&) = delete;
    CUserProfile& operator=(const CUserProfile&) = delete;

    // Takes over a loaded profile, with the token that it was loaded with. Holds nothing before.
    void Take(CKernelHandle& token, HANDLE hProfile, UnloadUserProfileProc* pfnUnload);

private:
    CKernelHandle m_token;
    HANDLE m_hProfile = nullptr;
    UnloadUserProfileProc* m_pfnUnload = nullptr;
};
