// What the tests of the dialogs about certificates share: the server's addresses, what the dialogs say, and
// the user's answers.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

#include "system/dialog/DesktopHost.h"
#include "system/HttpRawHost.h"

// What a dialog says that is wrong with a certificate; both together in the order of the dialogs.
inline constexpr wchar_t kUnknownIssuer[] =
    L"The certificate is issued by an unknown or untrusted publisher.";
inline constexpr wchar_t kWrongName[] = L"The name on the certificate does not match the site.";
inline constexpr wchar_t kWrongDate[] = L"The date on the certificate is invalid.";

// Hosts that both lead to the server. The certificates for localhost are for no other.
inline constexpr wchar_t kNamedHost[] = L"localhost";
inline constexpr wchar_t kAddressedHost[] = L"127.0.0.1";

// /echo answers with the body of the request, /stall never.
std::wstring ServerUrl(const std::wstring& host, const std::wstring& path = L"/echo");

// Tells dialog_run.py what the server's log must hold, in the log's order. A test that calls this never
// expects no request at all.
void ExpectServed(const std::string& request);

// Posts on a component and answers each dialog with that control. The problems that the dialogs named.
std::vector<std::wstring> PostAndAnswer(CHttpRawHost& host, const std::wstring& url, WORD wControlId,
                                        const std::wstring& data = L"a=1");
// The one line in the middle.
std::wstring ProblemOf(HWND hDialog);
