#include "base/UrlComponents.h"

#include <cwchar>
#include <new>

namespace
{

struct PartFields
{
    LPWSTR URL_COMPONENTSW::* text;
    DWORD URL_COMPONENTSW::* length;
};

constexpr PartFields kParts[] = {
    {&URL_COMPONENTSW::lpszExtraInfo, &URL_COMPONENTSW::dwExtraInfoLength},
    {&URL_COMPONENTSW::lpszHostName, &URL_COMPONENTSW::dwHostNameLength},
    {&URL_COMPONENTSW::lpszPassword, &URL_COMPONENTSW::dwPasswordLength},
    {&URL_COMPONENTSW::lpszScheme, &URL_COMPONENTSW::dwSchemeLength},
    {&URL_COMPONENTSW::lpszUrlPath, &URL_COMPONENTSW::dwUrlPathLength},
    {&URL_COMPONENTSW::lpszUserName, &URL_COMPONENTSW::dwUserNameLength},
};

}  // namespace

CUrlComponents::CUrlComponents() : m_uc{}
{
    m_uc.dwStructSize = sizeof(m_uc);
}

CUrlComponents::~CUrlComponents()
{
    Clear();
}

void CUrlComponents::Clear()
{
    for (const PartFields& part : kParts)
    {
        delete[] (m_uc.*part.text);
    }
    m_uc = {};
    m_uc.dwStructSize = sizeof(m_uc);
    m_bCracked = FALSE;
}

BOOL CUrlComponents::Crack(const wchar_t* url)
{
    if (url == nullptr)
    {
        return FALSE;
    }
    Clear();
    const size_t length = std::wcslen(url);
    for (const PartFields& part : kParts)
    {
        // Each buffer is as long as the whole URL, which bounds every part, and has a terminator even
        // when the URL is empty.
        m_uc.*part.text = new (std::nothrow) wchar_t[length + 1]();
        m_uc.*part.length = static_cast<DWORD>(length);
        if (m_uc.*part.text == nullptr)
        {
            Clear();
            return FALSE;
        }
    }
    m_bCracked = InternetCrackUrlW(url, static_cast<DWORD>(length), 0, &m_uc);
    return m_bCracked;
}
