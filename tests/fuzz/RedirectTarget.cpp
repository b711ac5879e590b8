// The target of a redirect: a whole exchange over the scripted platform, whose first answer names the target
// and whose second is read. What is connected to and asked for is what the platform's parser finds in the
// target itself.
#include <windows.h>
#include <wininet.h>

#include <string>
#include <vector>

#include "fuzz/Choices.h"
#include "fuzz/FuzzTarget.h"
#include "request/HttpRequest.h"
#include "support/CallText.h"
#include "support/ScriptedWinInet.h"

namespace
{

constexpr wchar_t kFirst[] = L"http://first:81/begin?q";
constexpr size_t kLongestLocation = 32770 / sizeof(wchar_t) - 1;

constexpr std::wstring_view kPieces[] = {
    L"http://", L"https://", L"host", L"10.0.0.1",    L":8080",      L":0", L":65535", L"/",
    L"/a/b",    L"?",        L"?x=1", L"#f",          L"user:word@", L"..", L"\\",     L" ",
    L"%41",     L"\u00E9",   L"//",   L"javascript:", L"a",          L";",  L"'",      L"\r\n",
};

std::wstring Location(CChoices& choices)
{
    std::wstring location = choices.OneIn(4) ? L"" : choices.OneIn(3) ? L"https://h" : L"http://h";
    location += choices.Pieces(kPieces, 8);
    if (choices.OneIn(100))
    {
        location.append(kLongestLocation - std::min(kLongestLocation, location.size()) +
                            static_cast<size_t>(choices.Between(0, 4)),
                        L'x');
        location.resize(location.size() - 2);
    }
    return location;
}

// Stays for good; each exchange has a CScriptedWinInet of its own. The cursors take their time, and nobody
// sees them here.
class CScriptedPlatform
{
public:
    explicit CScriptedPlatform(CScriptedWinInet& winInet)
    {
        winInet.Attach(m_imports);
        m_imports.Add("LoadCursorW", FindCursor);
        m_imports.Add("SetCursor", ShowCursor);
    }

private:
    static HCURSOR WINAPI FindCursor(HINSTANCE, LPCWSTR) { return nullptr; }
    static HCURSOR WINAPI ShowCursor(HCURSOR hCursor) { return hCursor; }

    CImportPatches m_imports;
};

struct Target
{
    std::wstring host;
    std::wstring object;
    INTERNET_PORT port;
    bool bSecure;
};

bool FindTarget(const std::wstring& url, Target& target)
{
    URL_COMPONENTSW uc = {};
    uc.dwStructSize = sizeof(uc);
    uc.dwHostNameLength = uc.dwUrlPathLength = uc.dwExtraInfoLength = uc.dwSchemeLength = 1;
    uc.dwUserNameLength = uc.dwPasswordLength = 1;
    if (!InternetCrackUrlW(url.c_str(), static_cast<DWORD>(url.size()), 0, &uc))
    {
        return false;
    }
    const auto pfnText = [](const wchar_t* text, DWORD cch)
    { return text != nullptr ? std::wstring(text, cch) : L""; };
    target = {pfnText(uc.lpszHostName, uc.dwHostNameLength),
              pfnText(uc.lpszUrlPath, uc.dwUrlPathLength) + pfnText(uc.lpszExtraInfo, uc.dwExtraInfoLength),
              uc.nPort, uc.nScheme == INTERNET_SCHEME_HTTPS};
    return true;
}

std::string NthCall(const std::vector<std::string>& calls, const std::string& function, int nth)
{
    for (const std::string& call : calls)
    {
        if (call.starts_with(function) && --nth == 0)
        {
            return call;
        }
    }
    return "no " + function;
}

}  // namespace

std::string CheckRedirect(std::string_view input)
{
    CChoices choices(input);
    const std::wstring location = Location(choices);
    CJournal journal;
    CScriptedWinInet winInet(journal);
    static CScriptedPlatform s_platform(winInet);
    winInet.m_attempts.Then(CScriptedWinInet::Redirect(L"302", location));

    const HINTERNET hSession = InternetOpenW(L"test", INTERNET_OPEN_TYPE_DIRECT, nullptr, nullptr, 0);
    unsigned long status = 0;
    {
        CHttpRequest request(hSession);
        request.SetUrl(kFirst, L"form=1");
        request.Run();
        request.GetStatus(&status);
    }
    InternetCloseHandle(hSession);

    const bool bTaken = !location.empty() && location.size() <= kLongestLocation;
    const std::wstring url = bTaken ? location : kFirst;
    Target target;
    // What cannot be split leaves it to the platform to refuse the connection.
    if (!FindTarget(url, target))
    {
        return Difference(Shown(url), "9", std::to_string(status));
    }
    const std::vector<std::string> calls = journal.Texts(CALL_NET);
    return Difference(Shown(url) + ", status", "9", std::to_string(status)) +
           Difference(
               Shown(url),
               CallText("InternetConnectW", {"session1", Quoted(target.host.c_str()),
                                             std::to_string(target.port), "null", "null", "3", "0", "0"}),
               NthCall(calls, "InternetConnectW", 2)) +
           Difference(Shown(url),
                      CallText("HttpOpenRequestW",
                               {"connect2", "'POST'", Quoted(target.object.c_str()), "'HTTP/1.1'", "null",
                                "null", target.bSecure ? "0x84C00900" : "0x84400900", "0"}),
                      NthCall(calls, "HttpOpenRequestW", 2));
}
