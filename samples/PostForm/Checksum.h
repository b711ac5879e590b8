// The SHA-256 checksum of a file, as sha256sum prints it.
#pragma once

#include <optional>
#include <string>

struct FileSummary
{
    unsigned long long nSize = 0;
    std::wstring strSha256;  // lower-case hexadecimal digits
};

// Nothing when the file cannot be read.
std::optional<FileSummary> SummarizeFile(const std::wstring& path);
