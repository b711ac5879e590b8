// The registry of the user who sits at the console. A host may run under another account, a service's
// for instance, whose own current-user hive is the wrong one for the user's browser settings.
#pragma once

#include <windows.h>

class CRegistry
{
public:
    // Stores the root of the console user's hive in *phKey; on failure *phKey stays as it is, and the
    // reason goes to the debugger. Each success loads the user's profile. Intended: the profile stays
    // loaded and the root is not to be closed. Loading takes the rights of a service account.
    static void GetCurrentUserKeyInVista(HKEY* phKey);

    // The root to read for hRoot: the console user's in place of HKEY_CURRENT_USER on systems of major
    // version 6 (operating-system class 8), hRoot itself otherwise. Not to be closed.
    static HKEY ResolveRoot(HKEY hRoot);
};

// True when subKey exists under root and can be opened for reading values; false for a null subKey.
BOOL KeyExists(HKEY root, const wchar_t* subKey);
