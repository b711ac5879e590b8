// What the module cannot do, because it imports nothing to do it with.
#include <gtest/gtest.h>

#include "support/ImportPatch.h"
#include "system/HttpRawHost.h"

namespace
{

TEST(ModuleReachTest, HasOneWayToWriteAFileAndNoneToStartAProgram)
{
    if (KVHTTP_COUNTS_LINES)
    {
        GTEST_SKIP() << "the counts are written into files";
    }
    for (const char* const pszFunction :
         {"CreateFileW", "WriteFile", "DeleteFileW", "LoadLibraryW", "fopen_s"})
    {
        EXPECT_TRUE(CImportPatch::IsImported(CHttpRawHost::Module(), pszFunction)) << pszFunction;
    }
    for (const char* const pszFunction : {"CreateFileA",
                                          "CreateDirectoryW",
                                          "MoveFileW",
                                          "MoveFileExW",
                                          "CopyFileW",
                                          "ReplaceFileW",
                                          "RemoveDirectoryW",
                                          "DeleteFileA",
                                          "SetFileAttributesW",
                                          "WriteFileEx",
                                          "CreateHardLinkW",
                                          "CreateSymbolicLinkW",
                                          "WritePrivateProfileStringW",
                                          "fopen",
                                          "_wfopen",
                                          "_wfopen_s",
                                          "_open",
                                          "_wopen",
                                          "_sopen_s",
                                          "_wsopen_s",
                                          "remove",
                                          "rename",
                                          "_wremove",
                                          "_wrename",
                                          "URLDownloadToFileW",
                                          "InternetSetCookieW",
                                          "FtpPutFileW",
                                          "CreateProcessW",
                                          "CreateProcessA",
                                          "CreateProcessAsUserW",
                                          "ShellExecuteW",
                                          "ShellExecuteExW",
                                          "WinExec",
                                          "system",
                                          "_wsystem",
                                          "LoadLibraryA",
                                          "LoadLibraryExW",
                                          "LoadLibraryExA",
                                          "CoCreateInstance",
                                          "SetCurrentDirectoryW",
                                          "SetDllDirectoryW",
                                          "SetEnvironmentVariableW"})
    {
        EXPECT_FALSE(CImportPatch::IsImported(CHttpRawHost::Module(), pszFunction)) << pszFunction;
    }
}

}  // namespace
