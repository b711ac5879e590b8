// A file of a Mozilla profile, open for reading through the C runtime.
#pragma once

#include <cstdio>
#include <memory>

class CMozillaFile
{
public:
    // path is in the ANSI code page; mode is that of fopen.
    CMozillaFile(const char* path, const char* mode);

    explicit operator bool() const { return m_file != nullptr; }

    // In bytes, of a file open in binary mode; 0 when it cannot be measured. The position is the start.
    size_t Size() const;

    // Reads once, at most cb bytes; returns how many.
    size_t Read(char* buffer, size_t cb) const;

private:
    struct Closer
    {
        void operator()(FILE* file) const { static_cast<void>(std::fclose(file)); }
    };
    std::unique_ptr<FILE, Closer> m_file;
};
