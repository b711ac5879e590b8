// What the host has set for its next exchange. The component keeps it; each send hands it over whole.
#pragma once

#include <windows.h>

#include "base/StringEx.h"

struct CRequestSettings
{
    CStringEx strUrl;
    CStringEx strData;
    CStringEx strDownloadFile;  // empty: keep the answer in memory
    HWND hWndParent = nullptr;
    unsigned long nTimeout = 0;        // in seconds; 0 means 60
    unsigned long bTraceResponse = 1;  // nonzero: an answer kept in memory is traced
};
