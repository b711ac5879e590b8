// One exchange as a host carries it out: post, then pump messages and poll until the status is final.
#pragma once

#include <windows.h>

#include <string>

#include "kvHttp/HttpRaw.h"

// Posts and prints each change of the status; with a file, the bytes that have arrived as well. Returns
// the final status.
unsigned long RunExchange(IHttpRaw* pHttpRaw, const std::wstring& url, const std::wstring& data,
                          const std::wstring& file);

// What a person can do about a final status other than REQ_STATUS_DONE.
const wchar_t* AdviceFor(unsigned long status);

const wchar_t* NameOf(unsigned long status);
