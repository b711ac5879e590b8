// Splitting URLs. What the platform's parser finds in the text itself must stand in the object's own buffers,
// and the parts put together again must be the URL.
#include <windows.h>
#include <wininet.h>

#include <algorithm>
#include <string>

#include "base/UrlComponents.h"
#include "fuzz/Choices.h"
#include "fuzz/FuzzTarget.h"
#include "support/guarded_heap/GuardedHeap.h"

namespace
{

constexpr std::wstring_view kPieces[] = {
    L"http://", L"https://", L"ftp://", L"file:///", L"javascript:", L"host",         L"127.0.0.1",
    L"[::1]",   L":",        L":80",    L":8080",    L":65536",      L":99999999999", L"/",
    L"//",      L"user@",    L"u:p@",   L"?",        L"?q=1",        L"#x",           L"/a/b",
    L"\\",      L" ",        L"%41",    L"..",       L"\u00E9",      L"\u20AC",       L"a",
    L".",       L";",        L"@",      L"=",
};

struct Part
{
    const char* pszName;
    LPWSTR URL_COMPONENTSW::* text;
    DWORD URL_COMPONENTSW::* length;
};

constexpr Part kParts[] = {
    {"scheme", &URL_COMPONENTSW::lpszScheme, &URL_COMPONENTSW::dwSchemeLength},
    {"host", &URL_COMPONENTSW::lpszHostName, &URL_COMPONENTSW::dwHostNameLength},
    {"user", &URL_COMPONENTSW::lpszUserName, &URL_COMPONENTSW::dwUserNameLength},
    {"password", &URL_COMPONENTSW::lpszPassword, &URL_COMPONENTSW::dwPasswordLength},
    {"path", &URL_COMPONENTSW::lpszUrlPath, &URL_COMPONENTSW::dwUrlPathLength},
    {"extra", &URL_COMPONENTSW::lpszExtraInfo, &URL_COMPONENTSW::dwExtraInfoLength},
};

std::wstring TextOf(const URL_COMPONENTSW& uc, const Part& part)
{
    return uc.*part.text != nullptr ? std::wstring(uc.*part.text, uc.*part.length) : std::wstring();
}

// The parts as places in the URL: the parser copies nothing.
bool FindParts(const std::wstring& url, URL_COMPONENTSW& uc)
{
    uc = {};
    uc.dwStructSize = sizeof(uc);
    for (const Part& part : kParts)
    {
        uc.*part.length = 1;
    }
    return InternetCrackUrlW(url.c_str(), static_cast<DWORD>(url.size()), 0, &uc) != FALSE;
}

std::string CheckParts(const std::wstring& url, const CUrlComponents& split)
{
    const std::string what = Shown(url);
    URL_COMPONENTSW places;
    if (!FindParts(url, places))
    {
        return what + ": the parser does not take it in place";
    }
    for (const Part& part : kParts)
    {
        const wchar_t* const text = split.m_uc.*part.text;
        const size_t room = CGuardedHeap::SizeOf(text) / sizeof(wchar_t);
        if (std::find(text, text + room, L'\0') == text + room)
        {
            return what + ": no terminator behind the " + part.pszName;
        }
        // The parser rewrites the path of a file when it copies it.
        if (places.nScheme == INTERNET_SCHEME_FILE)
        {
            continue;
        }
        const std::string difference = Difference(what + ", " + part.pszName, Shown(TextOf(places, part)),
                                                  Shown(std::wstring_view(text)));
        if (!difference.empty())
        {
            return difference;
        }
    }
    return Difference(what + ", port", std::to_string(places.nPort), std::to_string(split.m_uc.nPort)) +
           Difference(what + ", number of the scheme", std::to_string(places.nScheme),
                      std::to_string(split.m_uc.nScheme));
}

}  // namespace

std::string CheckUrl(std::string_view input)
{
    CChoices choices(input);
    CUrlComponents split;
    for (int left = choices.Between(1, 2); left > 0; --left)
    {
        std::wstring url = choices.OneIn(2) ? L"http://" : L"";
        url += choices.Pieces(kPieces, 10);
        if (split.Crack(url.c_str()) != FALSE)
        {
            const std::string complaint = CheckParts(url, split);
            if (!complaint.empty())
            {
                return complaint;
            }
        }
        if (split.m_uc.dwStructSize != sizeof(split.m_uc) || split.Crack(nullptr) != FALSE)
        {
            return Shown(url) + ": the record or a null URL";
        }
        if (choices.OneIn(4))
        {
            split.Clear();
        }
    }
    return "";
}
