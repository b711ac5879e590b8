// The user who sits at the console, found through the desktop shell that runs in the console session.
#pragma once

#include <windows.h>

// Stores the access token of the first shell process of the console session, in enumeration order; the
// caller closes it. TRUE on success; on failure *phToken is null or untouched. On systems up to
// Windows 2000, and on unknown ones, the shell of session 0 is taken.
BOOL GetCurrentUserToken(HANDLE* phToken);
