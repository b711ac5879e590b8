// A folder of one test's own for target files with names of any kind and length, whatever attributes they
// get. It is removed with all that is in it.
#pragma once

#include <windows.h>

#include <map>
#include <string>

// Bytes by the path inside the folder.
using FileContents = std::map<std::wstring, std::string>;

class CTargetFolder
{
public:
    CTargetFolder();
    // Also gives the process its current folder back.
    ~CTargetFolder();
    CTargetFolder(const CTargetFolder&) = delete;
    CTargetFolder& operator=(const CTargetFolder&) = delete;

    // With a backslash at its end.
    const std::wstring& Path() const { return m_path; }

    void MakeFolder(const std::wstring& name) const;
    // Makes a new file, and remembers what it holds.
    void Write(const std::wstring& name, const std::string& bytes, DWORD dwAttributes = 0);
    // A name for a file whose whole path has that many characters. Makes the folders on the way.
    std::wstring MakeLongName(size_t pathLength) const;

    // What Write has put in.
    const FileContents& Written() const { return m_written; }
    // All files that are there.
    FileContents Files() const;

private:
    // Without the platform's limit on a path's length.
    std::wstring Extended(const std::wstring& name) const { return L"\\\\?\\" + m_path + name; }
    template <typename Visit>
    void ForEach(const std::wstring& folder, Visit visit) const;
    std::string Read(const std::wstring& name) const;

    std::wstring m_path;
    std::wstring m_formerFolder;
    FileContents m_written;
};
