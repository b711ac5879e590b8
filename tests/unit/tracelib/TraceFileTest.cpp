// The file of the trace library: appending, setting aside, sharing, and failing without harm.
#include "tracelib/TraceFile.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "support/FailingHeap.h"
#include "support/ImportPatch.h"
#include "support/TempFolder.h"

namespace
{

class TraceFileTest : public testing::Test
{
protected:
    std::wstring Path() const { return m_folder.Wide() + L"\\t.log"; }

    // Nothing when there is no such file.
    std::string Content(const std::string& suffix = "") const
    {
        std::ifstream stream(m_folder.Path() / ("t.log" + suffix), std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(stream), {});
    }

    bool Exists(const std::string& suffix) const
    {
        return std::filesystem::exists(m_folder.Path() / ("t.log" + suffix));
    }

    CTempFolder m_folder;
};

TEST_F(TraceFileTest, AppendsToWhatIsThere)
{
    m_folder.Write("t.log", "old\n");
    CTraceFile file(Path(), 0, 3);
    EXPECT_TRUE(file.Append("new\n"));
    EXPECT_TRUE(file.Append("newer\n"));
    EXPECT_EQ(Content(), "old\nnew\nnewer\n");
}

TEST_F(TraceFileTest, IsMadeAtTheFirstLineOnly)
{
    CTraceFile file(Path(), 0, 3);
    EXPECT_FALSE(Exists(""));
    EXPECT_TRUE(file.Append("line\n"));
    EXPECT_EQ(Content(), "line\n");
}

TEST_F(TraceFileTest, IsSetAsideBeforeItGrowsBeyondTheLimit)
{
    CTraceFile file(Path(), 10, 2);
    EXPECT_TRUE(file.Append("1234\n"));
    EXPECT_TRUE(file.Append("5678\n"));
    EXPECT_EQ(Content(), "1234\n5678\n") << "ten bytes are within the limit";
    EXPECT_TRUE(file.Append("9\n"));
    EXPECT_EQ(Content(), "9\n");
    EXPECT_EQ(Content(".1"), "1234\n5678\n");
    EXPECT_TRUE(file.Append("12345678\n"));
    EXPECT_TRUE(file.Append("abcdefgh\n"));
    EXPECT_EQ(Content(), "abcdefgh\n");
    EXPECT_EQ(Content(".1"), "12345678\n");
    EXPECT_EQ(Content(".2"), "9\n") << "the oldest is gone";
    EXPECT_FALSE(Exists(".3"));
}

TEST_F(TraceFileTest, IsSetAsideLaterWhereThereIsNoMemoryForIt)
{
    CTraceFile file(Path(), 10, 3);
    EXPECT_TRUE(file.Append("12345678\n"));
    {
        const CFailingHeap memory{0x10000};
        EXPECT_TRUE(file.Append("next\n"));
        EXPECT_EQ(memory.Refusals(), 1);
    }
    EXPECT_EQ(Content(), "12345678\nnext\n");
    EXPECT_TRUE(file.Append("last\n"));
    EXPECT_EQ(Content(".1"), "12345678\nnext\n");
    EXPECT_EQ(Content(), "last\n");
}

TEST_F(TraceFileTest, LineBeyondTheLimitIsWrittenAllTheSame)
{
    CTraceFile file(Path(), 4, 1);
    EXPECT_TRUE(file.Append("much too long\n"));
    EXPECT_EQ(Content(), "much too long\n");
    EXPECT_FALSE(Exists(".1")) << "an empty file is not set aside";
    EXPECT_TRUE(file.Append("a\n"));
    EXPECT_EQ(Content(".1"), "much too long\n");
}

TEST_F(TraceFileTest, KeepsNoneWhenNoneIsWanted)
{
    CTraceFile file(Path(), 4, 0);
    EXPECT_TRUE(file.Append("123\n"));
    EXPECT_TRUE(file.Append("456\n"));
    EXPECT_EQ(Content(), "456\n");
    EXPECT_FALSE(Exists(".0"));
    EXPECT_FALSE(Exists(".1"));
}

TEST_F(TraceFileTest, LimitOfZeroIsNone)
{
    CTraceFile file(Path(), 0, 1);
    const std::string line(100000, 'x');
    EXPECT_TRUE(file.Append(line));
    EXPECT_TRUE(file.Append(line));
    EXPECT_EQ(Content().size(), 200000u);
    EXPECT_FALSE(Exists(".1"));
}

TEST_F(TraceFileTest, TwoThatShareAFileSetItAsideOnce)
{
    CTraceFile first(Path(), 10, 3);
    CTraceFile second(Path(), 10, 3);
    EXPECT_TRUE(first.Append("1234\n"));
    EXPECT_TRUE(second.Append("5678\n"));
    EXPECT_TRUE(first.Append("9\n"));
    EXPECT_TRUE(second.Append("a\n"));
    EXPECT_TRUE(first.Append("b\n"));
    EXPECT_EQ(Content(), "9\na\nb\n");
    EXPECT_EQ(Content(".1"), "1234\n5678\n");
    EXPECT_FALSE(Exists(".2"));
}

TEST_F(TraceFileTest, OldFileThatCannotBeKeptDoesNotStopTheNewOne)
{
    std::filesystem::create_directory(m_folder.Path() / "t.log.1");
    CTraceFile file(Path(), 4, 1);
    EXPECT_TRUE(file.Append("123\n"));
    EXPECT_TRUE(file.Append("456\n"));
    EXPECT_EQ(Content(), "456\n");
}

TEST_F(TraceFileTest, MayBeReadMeanwhileButNotDeleted)
{
    CTraceFile file(Path(), 0, 1);
    EXPECT_TRUE(file.Append("line\n"));
    EXPECT_EQ(Content(), "line\n");
    EXPECT_FALSE(DeleteFileW(Path().c_str()));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_SHARING_VIOLATION});
}

TEST_F(TraceFileTest, WaitsForTheLockOfAnother)
{
    CTraceFile file(Path(), 0, 1);
    EXPECT_TRUE(file.Append("1\n"));
    const CFileHandle other(CreateFileW(Path().c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                        nullptr, OPEN_EXISTING, 0, nullptr));
    OVERLAPPED place = {};
    place.OffsetHigh = 0x40000000;
    ASSERT_TRUE(LockFileEx(other.Get(), LOCKFILE_EXCLUSIVE_LOCK, 0, 1, 0, &place));
    const ULONGLONG begin = GetTickCount64();
    EXPECT_TRUE(file.Append("2\n"));
    EXPECT_GE(GetTickCount64() - begin, 900u) << "has not waited for the lock";
    EXPECT_EQ(Content(), "1\n2\n") << "a lock that stays must not stop the trace";
}

TEST_F(TraceFileTest, LockIsFreeBetweenTwoCalls)
{
    CTraceFile file(Path(), 4, 1);
    EXPECT_TRUE(file.Append("123\n"));
    EXPECT_TRUE(file.Append("456\n"));
    const CFileHandle other(CreateFileW(Path().c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                        nullptr, OPEN_EXISTING, 0, nullptr));
    OVERLAPPED place = {};
    place.OffsetHigh = 0x40000000;
    EXPECT_TRUE(
        LockFileEx(other.Get(), LOCKFILE_EXCLUSIVE_LOCK | LOCKFILE_FAIL_IMMEDIATELY, 0, 1, 0, &place));
}

TEST_F(TraceFileTest, MissingFolderIsAnErrorThatIsNotTriedAtEveryLine)
{
    CTraceFile file(m_folder.Wide() + L"\\none\\t.log", 0, 1);
    EXPECT_FALSE(file.Append("1\n"));
    EXPECT_EQ(file.Error(), DWORD{ERROR_PATH_NOT_FOUND});
    std::filesystem::create_directory(m_folder.Path() / "none");
    EXPECT_FALSE(file.Append("2\n")) << "tried again at once";
    EXPECT_EQ(file.Error(), DWORD{ERROR_PATH_NOT_FOUND});
}

// The scripted platform of the tests below.
decltype(&WriteFile) g_pfnWriteFile = nullptr;

BOOL WINAPI WriteThreeBytesOnly(HANDLE hFile, LPCVOID pBytes, DWORD, LPDWORD pcb, LPOVERLAPPED pPlace)
{
    g_pfnWriteFile(hFile, pBytes, 3, pcb, pPlace);
    SetLastError(ERROR_DISK_FULL);
    return FALSE;
}

ULONGLONG g_ticks = 0;
ULONGLONG WINAPI ScriptedTicks()
{
    return g_ticks;
}

TEST_F(TraceFileTest, FullDiskLeavesNoPartOfALine)
{
    CTraceFile file(Path(), 0, 1);
    EXPECT_TRUE(file.Append("line\n"));
    {
        CImportPatches imports;
        g_pfnWriteFile = imports.Add("WriteFile", WriteThreeBytesOnly);
        EXPECT_FALSE(file.Append("another\n"));
        EXPECT_EQ(file.Error(), DWORD{ERROR_DISK_FULL});
    }
    EXPECT_EQ(Content(), "line\n");
    EXPECT_TRUE(file.Append("a third\n")) << "there may be room again";
    EXPECT_EQ(Content(), "line\na third\n");
    EXPECT_EQ(file.Error(), DWORD{ERROR_SUCCESS});
}

TEST_F(TraceFileTest, FileThatCouldNotBeOpenedIsTriedAgainLater)
{
    CImportPatches imports;
    imports.Add("GetTickCount64", ScriptedTicks);
    g_ticks = 1000;
    CTraceFile file(m_folder.Wide() + L"\\none\\t.log", 0, 1);
    EXPECT_FALSE(file.Append("1\n"));
    std::filesystem::create_directory(m_folder.Path() / "none");
    g_ticks = 2999;
    EXPECT_FALSE(file.Append("2\n"));
    g_ticks = 3000;
    EXPECT_TRUE(file.Append("3\n"));
    EXPECT_EQ(Content(), "");
}

}  // namespace
