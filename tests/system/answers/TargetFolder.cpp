#include "system/answers/TargetFolder.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace
{

constexpr size_t kMaxFolderName = 100;

int g_cFolders = 0;

}  // namespace

CTargetFolder::CTargetFolder()
{
    wchar_t szFolder[MAX_PATH + 1] = {};
    GetCurrentDirectoryW(MAX_PATH + 1, szFolder);
    m_formerFolder = szFolder;
    GetTempPathW(MAX_PATH + 1, szFolder);
    // The process identifier makes the folders of several processes differ.
    m_path = szFolder + (L"kvhttp_target_" + std::to_wstring(GetCurrentProcessId())) + L"_" +
             std::to_wstring(++g_cFolders) + L"\\";
    MakeFolder(L"");
}

CTargetFolder::~CTargetFolder()
{
    SetCurrentDirectoryW(m_formerFolder.c_str());
    ForEach(L"",
            [this](const std::wstring& name, bool bFolder)
            {
                SetFileAttributesW(Extended(name).c_str(), FILE_ATTRIBUTE_NORMAL);
                const BOOL bGone =
                    bFolder ? RemoveDirectoryW(Extended(name).c_str()) : DeleteFileW(Extended(name).c_str());
                EXPECT_TRUE(bGone) << "error " << GetLastError() << " for " << testing::PrintToString(name);
            });
    EXPECT_TRUE(RemoveDirectoryW(m_path.c_str())) << "error " << GetLastError();
}

void CTargetFolder::MakeFolder(const std::wstring& name) const
{
    EXPECT_TRUE(CreateDirectoryW(Extended(name).c_str(), nullptr)) << "error " << GetLastError();
}

void CTargetFolder::Write(const std::wstring& name, const std::string& bytes, DWORD dwAttributes)
{
    const HANDLE hFile =
        CreateFileW(Extended(name).c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, dwAttributes, nullptr);
    ASSERT_NE(hFile, INVALID_HANDLE_VALUE) << "error " << GetLastError();
    DWORD cb = 0;
    EXPECT_TRUE(WriteFile(hFile, bytes.data(), static_cast<DWORD>(bytes.size()), &cb, nullptr));
    CloseHandle(hFile);
    m_written[name] = bytes;
}

std::wstring CTargetFolder::MakeLongName(size_t pathLength) const
{
    std::wstring name;
    size_t rest = pathLength - m_path.size();
    // At least one character is left over for the file.
    while (rest > kMaxFolderName + 1)
    {
        name.append(std::min(kMaxFolderName, rest - 2), L'd');
        CreateDirectoryW(Extended(name).c_str(), nullptr);
        name += L'\\';
        rest = pathLength - m_path.size() - name.size();
    }
    return name.append(rest, L'f');
}

FileContents CTargetFolder::Files() const
{
    FileContents files;
    ForEach(L"",
            [&](const std::wstring& name, bool bFolder)
            {
                if (!bFolder)
                {
                    files[name] = Read(name);
                }
            });
    return files;
}

// Calls visit for all that is in the folder; for a folder after what is in it.
template <typename Visit>
void CTargetFolder::ForEach(const std::wstring& folder, Visit visit) const
{
    WIN32_FIND_DATAW data = {};
    const HANDLE hFind = FindFirstFileW(Extended(folder + L"*").c_str(), &data);
    for (BOOL bMore = hFind != INVALID_HANDLE_VALUE; bMore; bMore = FindNextFileW(hFind, &data))
    {
        const std::wstring name = data.cFileName;
        if (name == L"." || name == L"..")
        {
            continue;
        }
        const bool bFolder = (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
        if (bFolder)
        {
            ForEach(folder + name + L'\\', visit);
        }
        visit(folder + name, bFolder);
    }
    FindClose(hFind);
}

std::string CTargetFolder::Read(const std::wstring& name) const
{
    const HANDLE hFile = CreateFileW(Extended(name).c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                                     OPEN_EXISTING, 0, nullptr);
    EXPECT_NE(hFile, INVALID_HANDLE_VALUE) << "error " << GetLastError();
    std::string bytes;
    char piece[16384];
    DWORD cb = 0;
    while (ReadFile(hFile, piece, DWORD{sizeof(piece)}, &cb, nullptr) && cb != 0)
    {
        bytes.append(piece, cb);
    }
    CloseHandle(hFile);
    return bytes;
}
