// A URL split into its parts by the platform's own parser.
#pragma once

#include <windows.h>
#include <wininet.h>

class CUrlComponents
{
public:
    CUrlComponents();
    ~CUrlComponents();
    CUrlComponents(const CUrlComponents&) = delete;
    CUrlComponents& operator=(const CUrlComponents&) = delete;

    // Releases all parts; only the record's size stays set.
    void Clear();

    // Splits url, without decoding or escaping anything. Nonzero on success; the parts are then in
    // m_uc, each NUL-terminated, until the next Crack or Clear. A null url gives 0 and changes
    // nothing; on any other failure the old parts are gone, and the last error is the parser's.
    BOOL Crack(const wchar_t* url);

    BOOL m_bCracked = FALSE;  // result of the last split
    URL_COMPONENTSW m_uc;     // the six text buffers are owned by this object
};
