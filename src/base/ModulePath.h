// Where a loaded module lies.
#pragma once

#include <windows.h>

// Stores the full path of a module's file, always terminated. False when it is not known, and when it has
// 260 characters or more: what fits of it is stored then.
bool GetModulePath(HMODULE hModule, wchar_t (&szPath)[MAX_PATH]);
