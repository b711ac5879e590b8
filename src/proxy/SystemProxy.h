// How the system's proxy settings read in the record.
#pragma once

#include "base/StringEx.h"

// The manual list that a "ProxyServer" value makes. Intended: a backslash always stands before the value,
// behind "http=" for a value that names no protocol. The list is only reported; the session of a user of
// the system's browser takes the system's settings as they are.
CStringEx ManualListOf(const wchar_t* pszProxyServer);
