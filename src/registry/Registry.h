// The registry of the user who sits at the console. A host may run under another account, a service's
// for instance, whose own current-user hive is the wrong one for the user's browser settings.
#pragma once

#include <windows.h>

#include "registry/UserProfile.h"

class CRegistry
{
public:
    // Stores the root of the console user's hive in *phKey; on failure *phKey stays as it is, and the
    // reason goes to the debugger. Each success loads the user's profile, which takes the rights of a
    // service account; profile unloads it and closes the root at its end, on systems that can.
    static void GetCurrentUserKeyInVista(HKEY* phKey, CUserProfile& profile);
};

// The root to read for another one, good for as long as this object lives; keys below it are closed before.
class CRegistryRoot
{
public:
    // The console user's root in place of HKEY_CURRENT_USER on systems of major version 6 (operating-system
    // class 8), hRoot itself otherwise.
    explicit CRegistryRoot(HKEY hRoot);

    // Not to be closed.
    HKEY Get() const { return m_hRoot; }

private:
    CUserProfile m_profile;
    HKEY m_hRoot;
};

// True when subKey exists under root and can be opened for reading values; false for a null subKey.
BOOL KeyExists(HKEY root, const wchar_t* subKey);
