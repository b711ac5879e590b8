#include "proxy/MozillaFile.h"

CMozillaFile::CMozillaFile(const char* path, const char* mode)
{
    FILE* file = nullptr;
    if (path != nullptr && fopen_s(&file, path, mode) == 0)
    {
        m_file.reset(file);
    }
}

size_t CMozillaFile::Size() const
{
    std::fseek(m_file.get(), 0, SEEK_END);
    const long size = std::ftell(m_file.get());
    std::fseek(m_file.get(), 0, SEEK_SET);
    return size > 0 ? static_cast<size_t>(size) : 0;
}

size_t CMozillaFile::Read(char* buffer, size_t cb) const
{
    return std::fread(buffer, 1, cb, m_file.get());
}
