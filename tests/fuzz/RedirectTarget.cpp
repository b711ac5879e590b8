// The target of a redirect: a whole exchange over the scripted platform, whose first answer names the target
// and whose second is read. What is connected to and asked for is what the platform's parser finds in the
// target itself.
#include <windows.h>
#include <wininet.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "fuzz/Choices.h"
#include "fuzz/FuzzTarget.h"
#include "request/HttpRequest.h"
#include "support/ImportPatch.h"

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

struct Target
{
    std::wstring host;
    std::wstring object;
    INTERNET_PORT port;
    bool bSecure;
};

std::string ShownTarget(const Target& target)
{
    return Shown(target.host) + ":" + std::to_string(target.port) + " " + Shown(target.object) +
           (target.bSecure ? " secure" : "");
}

// The platform of one exchange: the first answer is a redirect, the second an empty body. CScriptedWinInet
// can do more, but its journal would take most of the time of millions of exchanges.
class CTwoAnswers
{
public:
    explicit CTwoAnswers(const std::wstring& location) : m_location(location)
    {
        static CImportPatches s_imports;
        [[maybe_unused]] static const bool s_bPatched = Patch(s_imports);
        s_pCurrent = this;
    }
    CTwoAnswers(const CTwoAnswers&) = delete;
    CTwoAnswers& operator=(const CTwoAnswers&) = delete;

    std::vector<Target> m_targets;
    int m_open = 0;  // handles

private:
    static HINTERNET Handle() { return reinterpret_cast<HINTERNET>(INT_PTR{0x1000}); }

    static HINTERNET Open()
    {
        ++s_pCurrent->m_open;
        return Handle();
    }

    static HINTERNET WINAPI Connect(HINTERNET, LPCWSTR host, INTERNET_PORT port, LPCWSTR, LPCWSTR, DWORD,
                                    DWORD, DWORD_PTR)
    {
        s_pCurrent->m_targets.push_back({host, L"", port, false});
        return Open();
    }

    static HINTERNET WINAPI OpenRequest(HINTERNET, LPCWSTR, LPCWSTR object, LPCWSTR, LPCWSTR, LPCWSTR*,
                                        DWORD dwFlags, DWORD_PTR)
    {
        s_pCurrent->m_targets.back().object = object;
        s_pCurrent->m_targets.back().bSecure = (dwFlags & INTERNET_FLAG_SECURE) != 0;
        return Open();
    }

    static BOOL WINAPI Close(HINTERNET)
    {
        --s_pCurrent->m_open;
        return TRUE;
    }

    static BOOL WINAPI QueryInfo(HINTERNET, DWORD dwLevel, LPVOID buffer, LPDWORD pcb, LPDWORD)
    {
        const std::wstring value = dwLevel == HTTP_QUERY_LOCATION      ? s_pCurrent->m_location
                                   : s_pCurrent->m_targets.size() == 1 ? L"302"
                                                                       : L"200";
        const size_t cb = (value.size() + 1) * sizeof(wchar_t);
        if (cb > *pcb)
        {
            SetLastError(ERROR_INSUFFICIENT_BUFFER);
            return FALSE;
        }
        std::memcpy(buffer, value.c_str(), cb);
        return TRUE;
    }

    static BOOL WINAPI Send(HINTERNET, LPCWSTR, DWORD, LPVOID, DWORD) { return TRUE; }
    static BOOL WINAPI SetOption(HINTERNET, DWORD, LPVOID, DWORD) { return TRUE; }
    static BOOL WINAPI QueryOption(HINTERNET, DWORD, LPVOID, LPDWORD) { return FALSE; }
    static BOOL WINAPI ConnectedState(LPDWORD, DWORD) { return TRUE; }
    static BOOL WINAPI Read(HINTERNET, LPVOID, DWORD, LPDWORD pcbRead)
    {
        *pcbRead = 0;
        return TRUE;
    }
    static HCURSOR WINAPI FindCursor(HINSTANCE, LPCWSTR) { return nullptr; }
    static HCURSOR WINAPI ShowThatCursor(HCURSOR hCursor) { return hCursor; }

    static bool Patch(CImportPatches& imports)
    {
        imports.Add("InternetConnectW", Connect);
        imports.Add("HttpOpenRequestW", OpenRequest);
        imports.Add("HttpSendRequestW", Send);
        imports.Add("HttpQueryInfoW", QueryInfo);
        imports.Add("InternetReadFile", Read);
        imports.Add("InternetQueryOptionW", QueryOption);
        imports.Add("InternetSetOptionW", SetOption);
        imports.Add("InternetCloseHandle", Close);
        imports.Add("InternetGetConnectedState", ConnectedState);
        imports.Add("LoadCursorW", FindCursor);
        imports.Add("SetCursor", ShowThatCursor);
        return true;
    }

    static inline CTwoAnswers* s_pCurrent = nullptr;

    const std::wstring& m_location;
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

}  // namespace

std::string CheckRedirect(std::string_view input)
{
    CChoices choices(input);
    const std::wstring location = Location(choices);
    CTwoAnswers platform(location);
    unsigned long status = 0;
    {
        CHttpRequest request(nullptr);
        request.SetUrl(kFirst, L"form=1");
        request.Run();
        request.GetStatus(&status);
    }
    const bool bTaken = !location.empty() && location.size() <= kLongestLocation;
    const std::wstring url = bTaken ? location : kFirst;
    if (status != REQ_STATUS_DONE || platform.m_targets.size() != 2 || platform.m_open != 0)
    {
        return Shown(url) + ": status " + std::to_string(status) + ", " +
               std::to_string(platform.m_targets.size()) +
               " attempts, handles left open: " + std::to_string(platform.m_open);
    }
    Target target;
    // What cannot be split leaves it to the platform to refuse the connection.
    return FindTarget(url, target)
               ? Difference(Shown(url), ShownTarget(target), ShownTarget(platform.m_targets[1]))
               : "";
}
