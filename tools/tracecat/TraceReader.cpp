#include "tracecat/TraceReader.h"

#include <windows.h>

#include <algorithm>
#include <utility>

#include "base/ScopedHandle.h"

namespace
{

constexpr int kMostAside = 99;
constexpr std::uint64_t kMarkLength = 128;
constexpr DWORD kPiece = 0x10000;
constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

// Appends what the file has from that byte on, or up to so many bytes of it. False when it cannot be read.
bool AppendFrom(const std::wstring& path, std::uint64_t begin, std::uint64_t most, std::string& bytes)
{
    const CFileHandle file(
        CreateFileW(path.c_str(), GENERIC_READ, kShareAll, nullptr, OPEN_EXISTING, 0, nullptr));
    LARGE_INTEGER place = {};
    place.QuadPart = static_cast<LONGLONG>(begin);
    if (!file || !SetFilePointerEx(file.Get(), place, nullptr, FILE_BEGIN))
    {
        return false;
    }
    for (DWORD cb = 1; cb != 0 && most != 0; most -= cb)
    {
        const size_t size = bytes.size();
        bytes.resize(size + kPiece);
        const auto wanted = static_cast<DWORD>(std::min<std::uint64_t>(kPiece, most));
        const bool bGood = ReadFile(file.Get(), bytes.data() + size, wanted, &cb, nullptr) != FALSE;
        bytes.resize(size + (bGood ? cb : 0));
        if (!bGood)
        {
            return false;
        }
    }
    return true;
}

}  // namespace

CTraceReader::CTraceReader(std::wstring path) : m_strPath(std::move(path))
{
}

bool CTraceReader::Read(std::string& bytes)
{
    const size_t before = bytes.size();
    std::uint64_t begin = m_nRead;
    if (!Continues(m_strPath))
    {
        int number = 1;
        while (number <= kMostAside && !Continues(Aside(number)))
        {
            ++number;
        }
        if (number <= kMostAside)
        {
            AppendFrom(Aside(number), m_nRead, MAXDWORD64, bytes);
            while (--number > 0)
            {
                AppendFrom(Aside(number), 0, MAXDWORD64, bytes);
            }
        }
        begin = 0;
    }
    const size_t own = bytes.size();
    if (!AppendFrom(m_strPath, begin, MAXDWORD64, bytes))
    {
        bytes.resize(before);
        return false;
    }
    m_nRead = begin + (bytes.size() - own);
    m_strMark.append(bytes, own);
    m_strMark.erase(0, m_strMark.size() - static_cast<size_t>(std::min<std::uint64_t>(kMarkLength, m_nRead)));
    return true;
}

void CTraceReader::ReadOld(std::string& bytes) const
{
    for (int number = kMostAside; number > 0; --number)
    {
        AppendFrom(Aside(number), 0, MAXDWORD64, bytes);
    }
}

std::wstring CTraceReader::Aside(int number) const
{
    return m_strPath + L"." + std::to_wstring(number);
}

// Whether the bytes that were read last are where they were.
bool CTraceReader::Continues(const std::wstring& path) const
{
    std::string bytes;
    return m_nRead == 0
               ? path == m_strPath
               : AppendFrom(path, m_nRead - m_strMark.size(), m_strMark.size(), bytes) && bytes == m_strMark;
}
