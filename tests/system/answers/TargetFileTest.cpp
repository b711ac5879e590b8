// Target files of every kind: where the answer ends up, and what becomes of the exchange when the file
// cannot be made.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "support/loopback/LoopbackServer.h"
#include "support/WineVersion.h"
#include "system/answers/TargetFolder.h"
#include "system/HttpRawHost.h"

namespace
{

constexpr char kOld[] = "what stood in the file before, longer than the answer";
constexpr char kAnswer[] = "the answer";

void AnswerOk(const CLoopbackRequest&, CLoopbackConnection& connection)
{
    connection.Send(MakeAnswer(200, kAnswer));
}

// A target as a row prepares it in the folder.
struct Target
{
    std::wstring path;       // what the host names
    std::wstring name = {};  // the file in the folder that then holds the answer; none when empty
    bool bMade = true;       // otherwise the file cannot be made
};

struct TargetRow
{
    const char* pszLabel;
    std::function<Target(CTargetFolder&)> prepare;
};

// A file that is named by its whole path.
Target InFolder(const CTargetFolder& folder, const std::wstring& name, bool bMade = true)
{
    return {folder.Path() + name, name, bMade};
}

// As above, before it is there.
TargetRow NewFile(const char* pszLabel, const std::wstring& name, bool bMade = true)
{
    return {pszLabel, [=](CTargetFolder& folder) { return InFolder(folder, name, bMade); }};
}

TargetRow OldFile(const char* pszLabel, DWORD dwAttributes, bool bMade)
{
    return {pszLabel, [=](CTargetFolder& folder)
            {
                folder.Write(L"file", kOld, dwAttributes);
                return InFolder(folder, L"file", bMade);
            }};
}

TargetRow LongPath(const char* pszLabel, size_t length, const std::wstring& prefix, bool bMade)
{
    return {pszLabel, [=](CTargetFolder& folder)
            {
                const std::wstring name = folder.MakeLongName(length);
                return Target{prefix + folder.Path() + name, name, bMade};
            }};
}

// Under Wine the superuser of the system below may write to files that are read-only.
bool IsAbovePermissions()
{
    CTargetFolder folder;
    folder.Write(L"file", kOld, FILE_ATTRIBUTE_READONLY);
    const HANDLE hFile =
        CreateFileW((folder.Path() + L"file").c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    if (hFile == INVALID_HANDLE_VALUE)
    {
        return false;
    }
    CloseHandle(hFile);
    return true;
}

std::vector<TargetRow> Rows()
{
    return {
        NewFile("a plain name", L"file.bin"),
        NewFile("no extension", L"file"),
        NewFile("spaces", L" with  spaces in it .bin"),
        NewFile("marks", L"a+b&c=d;e,f%20#g!h@i$j^k'l(m)n[o]{p}~.b-i_n"),
        NewFile("accents", L"Gr\x00FC\x00DF\x00E9.bin"),
        NewFile("a combining mark", L"e\x0301.bin"),
        NewFile("Cyrillic", L"\x0424\x0430\x0439\x043B.bin"),
        NewFile("Chinese", L"\x4E2D\x6587\x6587\x4EF6.bin"),
        NewFile("right to left", L"\x05E7\x05D5\x05D1\x05E5.bin"),
        NewFile("a pair of surrogates", L"\xD83D\xDE00.bin"),
        NewFile("the longest name", std::wstring(255, L'n')),
        NewFile("a name one too long", std::wstring(256, L'n'), false),
        {"a folder that is not Latin",
         [](CTargetFolder& folder)
         {
             folder.MakeFolder(L"\x041F\x0430\x043F\x043A\x0430 \xD83D\xDE00");
             return InFolder(folder, L"\x041F\x0430\x043F\x043A\x0430 \xD83D\xDE00\\\x4E2D.bin");
         }},
        {"forward slashes",
         [](CTargetFolder& folder)
         {
             folder.MakeFolder(L"sub");
             std::wstring path = folder.Path() + L"sub/file";
             std::replace(path.begin(), path.end(), L'\\', L'/');
             return Target{path, L"sub\\file"};
         }},
        {"dots on the way",
         [](CTargetFolder& folder)
         {
             folder.MakeFolder(L"sub");
             return Target{folder.Path() + L"sub\\..\\.\\sub\\\\..\\file", L"file"};
         }},
        {"dots and spaces at the end are dropped",
         [](CTargetFolder& folder) { return Target{folder.Path() + L"file. .", L"file"}; }},
        {"dots and spaces at the end of a path taken as it is",
         [](CTargetFolder& folder) { return Target{L"\\\\?\\" + folder.Path() + L"file. ", L"file. "}; }},
        {"another case of a file's name",
         [](CTargetFolder& folder)
         {
             folder.Write(L"File", kOld);
             return Target{folder.Path() + L"fILE", L"File"};
         }},
        {"a relative path",
         [](CTargetFolder& folder)
         {
             folder.MakeFolder(L"sub");
             SetCurrentDirectoryW(folder.Path().c_str());
             return Target{L"sub\\file", L"sub\\file"};
         }},
        {"the null device", [](CTargetFolder&) { return Target{L"NUL"}; }},
        LongPath("259 characters", 259, L"", true),
        LongPath("259 characters taken as they are", 259, L"\\\\?\\", true),
        // Windows takes longer paths only as they are, or from a program that declares itself aware of them.
        LongPath("260 characters", 260, L"", IsWine()),
        LongPath("300 characters", 300, L"", IsWine()),
        LongPath("300 characters taken as they are", 300, L"\\\\?\\", true),
        LongPath("1000 characters taken as they are", 1000, L"\\\\?\\", true),

        OldFile("a file that is there", 0, true),
        OldFile("a read-only file", FILE_ATTRIBUTE_READONLY, IsAbovePermissions()),
        // Windows does not replace such a file by one without the attribute.
        OldFile("a hidden file", FILE_ATTRIBUTE_HIDDEN, IsWine()),
        OldFile("a system file", FILE_ATTRIBUTE_SYSTEM, IsWine()),

        NewFile("a missing folder", L"missing\\file", false),
        {"a file for a folder",
         [](CTargetFolder& folder)
         {
             folder.Write(L"file", kOld);
             return InFolder(folder, L"file\\file", false);
         }},
        {"a folder",
         [](CTargetFolder& folder)
         {
             folder.MakeFolder(L"sub");
             return InFolder(folder, L"sub", false);
         }},
        {"a folder with a backslash",
         [](CTargetFolder& folder) { return Target{folder.Path(), L"", false}; }},
        {"a drive's root", [](CTargetFolder&) { return Target{L"C:\\", L"", false}; }},
        // Not one: Wine reads four characters of each path, past the end of a shorter one.
        {"spaces only", [](CTargetFolder&) { return Target{L"   ", L"", false}; }},
        {"a URL", [](CTargetFolder&) { return Target{L"file:///C:/file", L"", false}; }},
        {"a path in quotes",
         [](CTargetFolder& folder) { return Target{L"\"" + folder.Path() + L"file\"", L"", false}; }},
        {"slashes in a path taken as it is", [](CTargetFolder& folder)
         { return Target{L"\\\\?\\" + folder.Path() + L"sub/../file", L"", false}; }},
        NewFile("an asterisk", L"a*b", false),
        NewFile("a question mark", L"a?b", false),
        NewFile("a bar", L"a|b", false),
        NewFile("angle brackets", L"<ab>", false),
        NewFile("a quotation mark", L"a\"b", false),
        NewFile("a line end", L"a\nb", false),
    };
}

void ExpectFiles(const CTargetFolder& folder, const Target& target)
{
    FileContents expected = folder.Written();
    if (target.bMade && !target.name.empty())
    {
        expected[target.name] = kAnswer;
    }
    EXPECT_EQ(folder.Files(), expected);
}

TEST(TargetFileTest, TheAnswerIsInTheFileThatTheHostNamed)
{
    CLoopbackServer server(AnswerOk);
    for (const TargetRow& row : Rows())
    {
        SCOPED_TRACE(row.pszLabel);
        CTargetFolder folder;
        const Target target = row.prepare(folder);
        if (target.bMade)
        {
            CHttpRawHost host;
            host->SetDownloadFile(target.path.c_str());
            host->SetTimeout(5);  // bounds a failure
            EXPECT_EQ(host.PostAndAwaitEnd(server.Url(L"/")), Status{REQ_STATUS_DONE});
            EXPECT_EQ(host.TakeAnswer(), std::nullopt);
            ExpectFiles(folder, target);
        }
    }
}

// An exchange whose file cannot be made. It has a server of its own, since it keeps its connection.
class CFailingDownload
{
public:
    explicit CFailingDownload(const std::wstring& path)
    {
        m_host->SetDownloadFile(path.c_str());
        m_host->SetTimeout(2);
        m_host.Post(m_server.Url(L"/"));
        EXPECT_TRUE(m_host.AwaitStatus(REQ_STATUS_RECEIVING));
    }

    // The same component then brings another answer to memory.
    void ExpectTimeout()
    {
        EXPECT_EQ(m_host.AwaitEnd(), Status{REQ_STATUS_TIMEOUT});
        EXPECT_EQ(m_host.TakeAnswer(), std::nullopt);
        EXPECT_EQ(m_host.PostAndAwaitEnd(m_server.Url(L"/")), Status{REQ_STATUS_DONE});
        EXPECT_EQ(m_host.TakeAnswer(), L"the answer");
    }

private:
    CLoopbackServer m_server{AnswerOk};
    CHttpRawHost m_host;
};

TEST(TargetFileTest, AFileThatCannotBeMadeStaysReceivingUntilTheTimeOut)
{
    struct Running
    {
        const char* pszLabel;
        Target target;
        std::unique_ptr<CTargetFolder> folder;
        std::unique_ptr<CFailingDownload> download;
    };
    std::vector<Running> all;
    for (const TargetRow& row : Rows())
    {
        SCOPED_TRACE(row.pszLabel);
        auto folder = std::make_unique<CTargetFolder>();
        const Target target = row.prepare(*folder);
        if (!target.bMade)
        {
            auto download = std::make_unique<CFailingDownload>(target.path);
            ASSERT_FALSE(HasFailure()) << "the other rows would take as long";
            all.push_back({row.pszLabel, target, std::move(folder), std::move(download)});
        }
    }
    EXPECT_GE(all.size(), 16u);
    for (const Running& running : all)
    {
        SCOPED_TRACE(running.pszLabel);
        running.download->ExpectTimeout();
        ExpectFiles(*running.folder, running.target);
    }
}

TEST(TargetFileTest, AnEmptyPathKeepsTheAnswerInMemory)
{
    CLoopbackServer server(AnswerOk);
    CTargetFolder folder;
    CHttpRawHost host;
    host->SetDownloadFile((folder.Path() + L"file").c_str());
    host->SetDownloadFile(L"");
    EXPECT_EQ(host.PostAndAwaitEnd(server.Url(L"/")), Status{REQ_STATUS_DONE});
    EXPECT_EQ(host.TakeAnswer(), L"the answer");
    EXPECT_EQ(folder.Files(), FileContents{});
}

// It counts from the folder that is current when the answer begins.
TEST(TargetFileTest, ARelativePathIsCompletedWhenTheAnswerComes)
{
    CLoopbackServer server(
        [](const CLoopbackRequest& request, CLoopbackConnection& connection)
        {
            connection.Stall();
            AnswerOk(request, connection);
        });
    CTargetFolder first;
    CTargetFolder second;
    SetCurrentDirectoryW(first.Path().c_str());
    CHttpRawHost host;
    host->SetDownloadFile(L"file");
    host.Post(server.Url(L"/"));
    EXPECT_TRUE(server.AwaitRequests(1, kPatienceMs));
    SetCurrentDirectoryW(second.Path().c_str());
    server.Release();
    EXPECT_EQ(host.AwaitEnd(), Status{REQ_STATUS_DONE});
    EXPECT_EQ(first.Files(), FileContents{});
    EXPECT_EQ(second.Files(), (FileContents{{L"file", kAnswer}}));
}

}  // namespace
