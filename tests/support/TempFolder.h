// A folder of one test's own, removed with all that is in it.
#pragma once

#include <windows.h>

#include <filesystem>
#include <fstream>
#include <string>

class CTempFolder
{
public:
    CTempFolder()
    {
        wchar_t szTemp[MAX_PATH] = {};
        GetTempPathW(MAX_PATH, szTemp);
        // The counter makes the folders of one process differ, the process identifier those of several.
        m_path = std::filesystem::path(szTemp) /
                 (L"kvhttp" + std::to_wstring(GetCurrentProcessId()) + L"_" + std::to_wstring(++s_number));
        std::filesystem::remove_all(m_path);
        std::filesystem::create_directories(m_path);
    }
    ~CTempFolder()
    {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    CTempFolder(const CTempFolder&) = delete;
    CTempFolder& operator=(const CTempFolder&) = delete;

    const std::filesystem::path& Path() const { return m_path; }
    std::wstring Wide() const { return m_path.wstring(); }
    std::string Narrow() const { return m_path.string(); }

    // Makes the folders on the way too. Bytes are written as they are.
    std::filesystem::path Write(const std::filesystem::path& relative, const std::string& bytes) const
    {
        const std::filesystem::path path = m_path / relative;
        std::filesystem::create_directories(path.parent_path());
        std::ofstream stream(path, std::ios::binary | std::ios::trunc);
        stream.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
        return path;
    }

private:
    static inline int s_number = 0;

    std::filesystem::path m_path;
};
