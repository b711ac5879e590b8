// A file name of the test's own in the user's temporary folder. The file exists, empty, at first, and is
// gone at the end.
#pragma once

#include <optional>
#include <string>

class CTempFile
{
public:
    CTempFile();
    ~CTempFile();
    CTempFile(const CTempFile&) = delete;
    CTempFile& operator=(const CTempFile&) = delete;

    const wchar_t* Path() const { return m_path.c_str(); }
    bool Exists() const;
    void Write(const std::string& bytes) const;
    // Nothing when there is no file.
    std::optional<std::string> Read() const;

private:
    std::wstring m_path;
};
