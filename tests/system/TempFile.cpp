#include "system/TempFile.h"

#include <windows.h>

#include <filesystem>
#include <fstream>
#include <iterator>

CTempFile::CTempFile()
{
    wchar_t szFolder[MAX_PATH + 1] = {};
    wchar_t szPath[MAX_PATH + 1] = {};
    GetTempPathW(MAX_PATH + 1, szFolder);
    GetTempFileNameW(szFolder, L"kvh", 0, szPath);
    m_path = szPath;
}

CTempFile::~CTempFile()
{
    DeleteFileW(Path());
}

bool CTempFile::Exists() const
{
    return GetFileAttributesW(Path()) != INVALID_FILE_ATTRIBUTES;
}

void CTempFile::Write(const std::string& bytes) const
{
    std::ofstream(std::filesystem::path(m_path), std::ios::binary) << bytes;
}

std::optional<std::string> CTempFile::Read() const
{
    std::ifstream file(std::filesystem::path(m_path), std::ios::binary);
    if (!file)
    {
        return std::nullopt;
    }
    return std::string(std::istreambuf_iterator<char>(file), {});
}
