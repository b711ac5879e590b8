#include "server/ComponentTable.h"

#include "httpraw/HttpRaw.h"
#include "kvHttp/HttpRaw.h"

// Intended: the friendly name is the dotted one, and both programmatic identifiers hold a blank.
const CFactoryData g_FactoryDataArray[1] = {
    {&CLSID_HttpRaw, CHttpRaw::CreateInstance, L"Kestrin.Desktop.HttpRaw.0", L"HttpRaw 0.0.0.3",
     L"HttpRaw 0.0.0"},
};
