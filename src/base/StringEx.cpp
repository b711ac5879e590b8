#include "base/StringEx.h"

#include <climits>
#include <cstring>
#include <cwchar>
#include <memory>
#include <new>
#include <utility>

#include "base/TextConversion.h"
#include "base/TextLength.h"

#define STRSAFE_NO_DEPRECATE
#include <strsafe.h>

namespace
{

wchar_t* AllocateZeroed(size_t cch)
{
    return new (std::nothrow) wchar_t[cch]();
}

// Walks back over one run of ch at the end of text.
void StripEnd(wchar_t* text, size_t& length, wchar_t ch)
{
    while (length > 0 && text[length - 1] == ch)
    {
        text[--length] = L'\0';
    }
}

}  // namespace

CStringEx::CStringEx(const wchar_t* src)
{
    *this = src;
}

CStringEx::CStringEx(const CStringEx& other)
{
    *this = other;
}

CStringEx::CStringEx(CStringEx&& other) noexcept : m_pszData(other.m_pszData)
{
    other.m_pszData = nullptr;
    other.Empty();
}

CStringEx::~CStringEx()
{
    Empty();
}

CStringEx& CStringEx::operator=(const wchar_t* src)
{
    Assign(src);
    return *this;
}

bool CStringEx::Assign(const wchar_t* src)
{
    if (src != nullptr && src == m_pszData)
    {
        return true;
    }
    if (src == nullptr)
    {
        src = L"";
    }
    const size_t cch = TextLength(src) + 1;
    wchar_t* pszNew = new (std::nothrow) wchar_t[cch];
    if (pszNew != nullptr)
    {
        // No longer text is copied.
        const bool bFits = cch <= STRSAFE_MAX_CCH;
        std::wmemcpy(pszNew, bFits ? src : L"", bFits ? cch : 1);
    }
    ReplaceBlock(pszNew);
    m_bLocked = 0;
    return pszNew != nullptr;
}

CStringEx& CStringEx::operator=(const CStringEx& other)
{
    if (this != &other)
    {
        *this = other.c_str();
    }
    return *this;
}

CStringEx& CStringEx::operator=(CStringEx&& other) noexcept
{
    if (this != &other)
    {
        ReplaceBlock(other.m_pszData);
        other.m_pszData = nullptr;
        other.Empty();
        m_bLocked = 0;
    }
    return *this;
}

CStringEx& CStringEx::operator=(const char* src)
{
    Empty();
    m_pszData = WideCopy(CP_ACP, src != nullptr ? src : "", -1).release();
    return *this;
}

BOOL CStringEx::SetUTF8(const char* utf8)
{
    const size_t cb = std::strlen(utf8);
    if (cb > INT_MAX)
    {
        return FALSE;
    }
    int cch = 0;
    std::unique_ptr<wchar_t[]> text = WideCopy(CP_UTF8, utf8, static_cast<int>(cb), &cch);
    if (cch < 1)
    {
        return FALSE;
    }
    Empty();
    m_pszData = text.release();
    return TRUE;
}

void CStringEx::Empty()
{
    ReplaceBlock(nullptr);
    m_bLocked = 0;
}

CStringEx::operator const wchar_t*()
{
    if (m_pszData == nullptr)
    {
        *this = L"";
    }
    return m_pszData;
}

const wchar_t* CStringEx::c_str() const
{
    return m_pszData != nullptr ? m_pszData : L"";
}

int CStringEx::GetLength() const
{
    return LengthOf(m_pszData);
}

CStringEx& CStringEx::operator+=(const wchar_t* text)
{
    if (m_pszData == nullptr)
    {
        return *this = text;
    }
    wchar_t* pszOld = m_pszData;
    m_pszData = nullptr;
    Concat(pszOld, text, &m_pszData);
    delete[] pszOld;
    return *this;
}

void CStringEx::AppendChar(wchar_t ch)
{
    const wchar_t text[] = {ch, L'\0'};
    *this += text;
}

void CStringEx::Concat(const wchar_t* a, const wchar_t* b, wchar_t** out)
{
    delete[] *out;
    *out = nullptr;
    const size_t total = (a != nullptr ? TextLength(a) : 0) + (b != nullptr ? TextLength(b) : 0);
    if (total == 0)
    {
        return;
    }
    wchar_t* pszNew = AllocateZeroed(total + 2);
    if (pszNew != nullptr)
    {
        StringCchCopyW(pszNew, total + 2, a != nullptr ? a : L"");
        StringCchCatW(pszNew, total + 2, b != nullptr ? b : L"");
    }
    *out = pszNew;
}

CStringEx CStringEx::Mid(int start, int count) const
{
    CStringEx strResult;
    if (m_pszData == nullptr)
    {
        return strResult;
    }
    const int length = GetLength();
    if (start < 0)
    {
        start = 0;
    }
    if (start > length)
    {
        return strResult;
    }
    if (count < 0 || count > length - start)
    {
        count = length - start;
    }
    wchar_t* pszNew = AllocateZeroed(static_cast<size_t>(count) + 1);
    if (pszNew != nullptr)
    {
        std::wmemcpy(pszNew, m_pszData + start, static_cast<size_t>(count));
    }
    strResult.m_pszData = pszNew;
    return strResult;
}

CStringEx CStringEx::Left(int count) const
{
    return Mid(0, count);
}

CStringEx CStringEx::Right(int count) const
{
    const long long start = static_cast<long long>(GetLength()) - count;
    return Mid(start > INT_MAX ? INT_MAX : static_cast<int>(start), count);
}

int CStringEx::Find(const wchar_t* sub) const
{
    if (sub == nullptr || m_pszData == nullptr || *m_pszData == L'\0')
    {
        return -1;
    }
    const wchar_t* found = std::wcsstr(m_pszData, sub);
    return found != nullptr ? static_cast<int>(found - m_pszData) : -1;
}

int CStringEx::ReverseFind(const wchar_t* sub) const
{
    if (sub == nullptr || m_pszData == nullptr || *m_pszData == L'\0')
    {
        return -1;
    }
    const int subLength = LengthOf(sub);
    for (int index = GetLength() - subLength; index >= 0; --index)
    {
        if (std::wmemcmp(m_pszData + index, sub, static_cast<size_t>(subLength)) == 0)
        {
            return index;
        }
    }
    return -1;
}

int CStringEx::Delete(int index, int count)
{
    if (m_pszData == nullptr)
    {
        return 0;
    }
    const int length = GetLength();
    if (index < 0 || index > length || count < 0)
    {
        return length;
    }
    if (count > length - index)
    {
        m_pszData[index] = L'\0';
        return index;
    }
    const int newLength = length - count;
    wchar_t* pszNew = AllocateZeroed(static_cast<size_t>(newLength) + 1);
    if (pszNew != nullptr)
    {
        std::wmemcpy(pszNew, m_pszData, static_cast<size_t>(index));
        const wchar_t* const rest = m_pszData + index + count;
        std::wmemcpy(pszNew + index, rest, TextLength(rest) + 1);
    }
    ReplaceBlock(pszNew);
    return pszNew != nullptr ? newLength : 0;
}

int CStringEx::Replace(const wchar_t* oldText, const wchar_t* newText)
{
    if (oldText == nullptr || newText == nullptr || *oldText == L'\0' || Find(oldText) < 0 ||
        std::wcscmp(oldText, newText) == 0)
    {
        return 0;
    }
    if (*newText == L'\0')
    {
        return DeleteEvery(oldText);
    }
    const size_t length = static_cast<size_t>(GetLength());
    const size_t oldLength = TextLength(oldText);
    const size_t newLength = TextLength(newText);
    size_t cch = length + 1;
    if (newLength > oldLength)
    {
        cch += length * (newLength - oldLength) / oldLength;
    }
    const std::unique_ptr<wchar_t[]> text(AllocateZeroed(cch));
    if (text == nullptr)
    {
        return 0;
    }
    int replaced = 0;
    wchar_t* to = text.get();
    const wchar_t* from = m_pszData;
    while (*from != L'\0')
    {
        const wchar_t* found = std::wcsstr(from, oldText);
        if (found == nullptr)
        {
            break;
        }
        to = std::wmemcpy(to, from, static_cast<size_t>(found - from)) + (found - from);
        // NOLINTNEXTLINE(bugprone-not-null-terminated-result): the tail below ends the text
        to = std::wmemcpy(to, newText, newLength) + newLength;
        from = found + oldLength;
        ++replaced;
    }
    StringCchCatW(to, cch - static_cast<size_t>(to - text.get()), from);
    Empty();
    Assign(text.get());
    return replaced + 1;
}

int CStringEx::DeleteEvery(const wchar_t* oldText)
{
    const int oldLength = LengthOf(oldText);
    int deleted = 0;
    for (int index = Find(oldText); index >= 0; index = Find(oldText))
    {
        Delete(index, oldLength);
        ++deleted;
    }
    return deleted;
}

void CStringEx::MakeLower()
{
    if (m_pszData != nullptr)
    {
        _wcslwr(m_pszData);
    }
}

void CStringEx::PathAppend(const wchar_t* lpszFile)
{
    const CStringEx strCopy(lpszFile);
    const wchar_t* part = strCopy.c_str();
    part += std::wcsspn(part, L"/");
    part += std::wcsspn(part, L"\\");
    if (m_pszData != nullptr)
    {
        size_t length = TextLength(m_pszData);
        StripEnd(m_pszData, length, L'/');
        StripEnd(m_pszData, length, L'\\');
    }
    *this += L"\\";
    *this += part;
}

void CStringEx::PathAppend(CStringEx& strFile)
{
    const wchar_t* lpszFile = strFile;
    if (lpszFile == nullptr)
    {
        OutputDebugStringW(L"CStringEx::PathAppend: lpszFile == NULL\n");
        return;
    }
    PathAppend(lpszFile);
}

wchar_t* CStringEx::GetBuffer(int minLength)
{
    if (m_bLocked != 0)
    {
        return nullptr;
    }
    if (minLength > GetLength() + 1)  // intended: what fits with its end in the old block stays there
    {
        const size_t cch = static_cast<size_t>(minLength) + 1;
        wchar_t* pszNew = new (std::nothrow) wchar_t[cch];
        if (pszNew != nullptr && m_pszData != nullptr)
        {
            std::wmemset(pszNew, L'\0', cch);
            StringCchCopyW(pszNew, cch, m_pszData);
        }
        ReplaceBlock(pszNew);
    }
    m_bLocked = 1;
    return m_pszData;
}

void CStringEx::ReleaseBuffer()
{
    m_bLocked ^= 1;
}

int CStringEx::LengthOf(const wchar_t* text)
{
    return text != nullptr ? static_cast<int>(TextLength(text)) : 0;
}

void CStringEx::ReplaceBlock(wchar_t* pszNew)
{
    delete[] std::exchange(m_pszData, pszNew);
}
