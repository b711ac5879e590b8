// The viewer's reading of a file that grows and is set aside, against the library's own file class.
#include "tracecat/TraceReader.h"

#include <gtest/gtest.h>

#include "support/TempFolder.h"
#include "tracelib/TraceFile.h"

namespace
{

class TraceReaderTest : public testing::Test
{
protected:
    std::wstring Path() const { return m_folder.Wide() + L"\\t.log"; }

    std::string Read()
    {
        std::string bytes;
        EXPECT_TRUE(m_reader.Read(bytes));
        return bytes;
    }

    CTempFolder m_folder;
    CTraceReader m_reader{Path()};
};

TEST_F(TraceReaderTest, ReadsAllAtFirstAndThenWhatIsNew)
{
    CTraceFile file(Path(), 0, 3);
    file.Append("one\n");
    EXPECT_EQ(Read(), "one\n");
    EXPECT_EQ(Read(), "");
    file.Append("two\n");
    file.Append("three\n");
    EXPECT_EQ(Read(), "two\nthree\n");
}

TEST_F(TraceReaderTest, LongFilesAreReadWhole)
{
    std::string content;
    for (int line = 0; content.size() < 300000; ++line)
    {
        content += std::to_string(line) + "\n";
    }
    m_folder.Write("t.log", content);
    EXPECT_EQ(Read(), content);
}

TEST_F(TraceReaderTest, FileThatIsNotThereYetCanBeReadLater)
{
    std::string bytes;
    EXPECT_FALSE(m_reader.Read(bytes));
    EXPECT_EQ(bytes, "");
    m_folder.Write("t.log", "one\n");
    EXPECT_EQ(Read(), "one\n");
}

TEST_F(TraceReaderTest, NothingIsLostWhenTheFileIsSetAside)
{
    CTraceFile file(Path(), 8, 9);
    file.Append("one\n");
    EXPECT_EQ(Read(), "one\n");
    file.Append("two\n");
    file.Append("three\n");
    EXPECT_EQ(Read(), "two\nthree\n");
    file.Append("4\n");
    EXPECT_EQ(Read(), "4\n");
}

TEST_F(TraceReaderTest, NothingIsLostWhenThatHappensSeveralTimes)
{
    CTraceFile file(Path(), 8, 9);
    file.Append("one\n");
    EXPECT_EQ(Read(), "one\n");
    std::string expected;
    for (int line = 10000; line < 10006; ++line)
    {
        file.Append(std::to_string(line) + "\n");
        expected += std::to_string(line) + "\n";
    }
    EXPECT_EQ(Read(), expected);
    EXPECT_EQ(Read(), "");
}

TEST_F(TraceReaderTest, NewFileThatHasGrownBeyondTheOldOneIsKnownAsNew)
{
    CTraceFile file(Path(), 8, 9);
    file.Append("1\n");
    EXPECT_EQ(Read(), "1\n");
    file.Append("22222\n");
    file.Append("3333333\n");
    EXPECT_EQ(Read(), "22222\n3333333\n");
}

TEST_F(TraceReaderTest, EmptiedFileBeginsAnew)
{
    m_folder.Write("t.log", "one\n");
    EXPECT_EQ(Read(), "one\n");
    m_folder.Write("t.log", "");
    EXPECT_EQ(Read(), "");
    m_folder.Write("t.log", "two\n");
    EXPECT_EQ(Read(), "two\n");
}

TEST_F(TraceReaderTest, OldFilesComeTheOldestFirst)
{
    m_folder.Write("t.log.12", "12\n");
    m_folder.Write("t.log.2", "2\n");
    m_folder.Write("t.log.1", "1\n");
    std::string bytes;
    m_reader.ReadOld(bytes);
    EXPECT_EQ(bytes, "12\n2\n1\n");
}

TEST_F(TraceReaderTest, DoesNotHoldTheFile)
{
    m_folder.Write("t.log", "one\n");
    Read();
    EXPECT_TRUE(DeleteFileW(Path().c_str()));
}

}  // namespace
