// A target file that others use at the same time.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "support/loopback/LoopbackServer.h"
#include "system/answers/TargetFolder.h"
#include "system/HttpRawHost.h"

namespace
{

constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

void AnswerOk(const CLoopbackRequest&, CLoopbackConnection& connection)
{
    connection.Send(MakeAnswer(200, "the answer"));
}

HANDLE Open(const std::wstring& path, DWORD dwAccess, DWORD dwShare)
{
    return CreateFileW(path.c_str(), dwAccess, dwShare, nullptr, OPEN_EXISTING, 0, nullptr);
}

std::wstring WriteOld(CTargetFolder& folder)
{
    folder.Write(L"file", "what stood in the file before, longer than the answer");
    return folder.Path() + L"file";
}

// ERROR_SUCCESS when a file could be opened.
DWORD OpenError(const std::wstring& path, DWORD dwAccess)
{
    const HANDLE hFile = Open(path, dwAccess, kShareAll);
    if (hFile == INVALID_HANDLE_VALUE)
    {
        return GetLastError();
    }
    CloseHandle(hFile);
    return ERROR_SUCCESS;
}

struct HolderRow
{
    const char* pszLabel;
    DWORD dwAccess;
    DWORD dwShare;
    bool bMade;
    bool bMapped = false;
};

// The component shares the file with nobody, so that sharing on the other side does not help.
const HolderRow kHolders[] = {
    {"reads and shares nothing", GENERIC_READ, 0, false},
    {"reads and shares reading", GENERIC_READ, FILE_SHARE_READ, false},
    {"reads and shares all", GENERIC_READ, kShareAll, false},
    {"writes and shares all", GENERIC_WRITE, kShareAll, false},
    {"appends and shares all", FILE_APPEND_DATA, kShareAll, false},
    {"executes and shares all", FILE_EXECUTE, kShareAll, false},
    {"deletes and shares all", DELETE, kShareAll, false},
    {"has a view of it", GENERIC_READ, kShareAll, false, true},
    {"looks at attributes and shares nothing", FILE_READ_ATTRIBUTES, 0, true},
};

// Somebody else's hold on a file.
class CHolder
{
public:
    explicit CHolder(HANDLE hFile) : m_hFile(hFile)
    {
        EXPECT_NE(m_hFile, INVALID_HANDLE_VALUE) << "error " << GetLastError();
    }
    ~CHolder() { LetGo(); }
    CHolder(const CHolder&) = delete;
    CHolder& operator=(const CHolder&) = delete;

    // Keeps the file by a view of it instead of the handle.
    void MapAndClose()
    {
        const HANDLE hMapping = CreateFileMappingW(m_hFile, nullptr, PAGE_READONLY, 0, 0, nullptr);
        m_pView = MapViewOfFile(hMapping, FILE_MAP_READ, 0, 0, 0);
        EXPECT_NE(m_pView, nullptr) << "error " << GetLastError();
        CloseHandle(hMapping);
        Close();
    }
    void LetGo()
    {
        Close();
        if (m_pView != nullptr)
        {
            UnmapViewOfFile(m_pView);
            m_pView = nullptr;
        }
    }

private:
    void Close()
    {
        if (m_hFile != INVALID_HANDLE_VALUE)
        {
            CloseHandle(m_hFile);
            m_hFile = INVALID_HANDLE_VALUE;
        }
    }

    HANDLE m_hFile;
    void* m_pView = nullptr;
};

// A download into a file that somebody else holds, by a component and a server of its own.
class CHeldDownload
{
public:
    explicit CHeldDownload(const HolderRow& row) : m_row(row)
    {
        if (row.bMapped)
        {
            m_holder.MapAndClose();
        }
        m_host->SetDownloadFile(m_path.c_str());
        m_host->SetTimeout(2);
        m_host.Post(m_server.Url(L"/"));
        if (!row.bMade)
        {
            EXPECT_TRUE(m_host.AwaitStatus(REQ_STATUS_RECEIVING));
        }
    }

    void ExpectEnd()
    {
        if (!m_row.bMade)
        {
            EXPECT_EQ(m_host.AwaitEnd(), Status{REQ_STATUS_TIMEOUT});
            m_holder.LetGo();
            EXPECT_EQ(m_folder.Files(), m_folder.Written());
            m_host.Post(m_server.Url(L"/"));
        }
        EXPECT_EQ(m_host.AwaitEnd(), Status{REQ_STATUS_DONE}) << "with no hindrance";
        m_holder.LetGo();
        EXPECT_EQ(m_folder.Files(), (FileContents{{L"file", "the answer"}}));
    }

private:
    const HolderRow& m_row;
    CTargetFolder m_folder{};
    const std::wstring m_path = WriteOld(m_folder);
    CHolder m_holder{Open(m_path, m_row.dwAccess, m_row.dwShare)};
    CLoopbackServer m_server{AnswerOk};
    CHttpRawHost m_host{};
};

TEST(SharedFileTest, WhoeverHoldsTheFileKeepsItFromBeingReplaced)
{
    std::vector<std::unique_ptr<CHeldDownload>> downloads;
    for (const HolderRow& row : kHolders)
    {
        SCOPED_TRACE(row.pszLabel);
        downloads.push_back(std::make_unique<CHeldDownload>(row));
        ASSERT_FALSE(HasFailure()) << "the other rows would take as long";
    }
    for (size_t index = 0; index < downloads.size(); ++index)
    {
        SCOPED_TRACE(kHolders[index].pszLabel);
        downloads[index]->ExpectEnd();
    }
}

class UnfinishedFileTest : public testing::Test
{
protected:
    static void AnswerInTwo(const CLoopbackRequest&, CLoopbackConnection& connection)
    {
        connection.Send("HTTP/1.1 200 OK\r\nContent-Length: 20008\r\n\r\n" + std::string(20000, 'x'));
        connection.Stall();
        connection.Send("the rest");
    }

    // Returns when the file is there.
    void Start()
    {
        const HANDLE hChange =
            FindFirstChangeNotificationW(m_folder.Path().c_str(), FALSE, FILE_NOTIFY_CHANGE_FILE_NAME);
        ASSERT_NE(hChange, INVALID_HANDLE_VALUE) << "error " << GetLastError();
        m_host->SetDownloadFile(m_path.c_str());
        m_host.Post(m_server.Url(L"/"));
        EXPECT_EQ(WaitForSingleObject(hChange, kPatienceMs), WAIT_OBJECT_0);
        FindCloseChangeNotification(hChange);
        EXPECT_NE(GetFileAttributesW(m_path.c_str()), INVALID_FILE_ATTRIBUTES);
    }

    void Finish()
    {
        m_server.Release();
        EXPECT_EQ(m_host.AwaitEnd(), Status{REQ_STATUS_DONE});
        EXPECT_EQ(m_folder.Files(), (FileContents{{L"file", std::string(20000, 'x') + "the rest"}}));
    }

    CTargetFolder m_folder;
    std::wstring m_path = m_folder.Path() + L"file";
    CLoopbackServer m_server{AnswerInTwo};
    CHttpRawHost m_host;
};

TEST_F(UnfinishedFileTest, NobodyElseCanOpenOrDeleteOrRenameIt)
{
    Start();
    for (const DWORD dwAccess : {DWORD{GENERIC_READ}, DWORD{GENERIC_WRITE}, DWORD{DELETE}})
    {
        EXPECT_EQ(OpenError(m_path, dwAccess), DWORD{ERROR_SHARING_VIOLATION}) << "access " << dwAccess;
    }
    EXPECT_FALSE(DeleteFileW(m_path.c_str()));
    EXPECT_FALSE(MoveFileW(m_path.c_str(), (m_path + L"2").c_str()));
    Finish();
    EXPECT_TRUE(MoveFileW(m_path.c_str(), (m_path + L"2").c_str())) << "error " << GetLastError();
}

TEST_F(UnfinishedFileTest, AnotherComponentCannotHaveItEither)
{
    Start();
    CLoopbackServer server(AnswerOk);
    CHttpRawHost late;
    late->SetDownloadFile(m_path.c_str());
    late->SetTimeout(1);
    EXPECT_EQ(late.PostAndAwaitEnd(server.Url(L"/")), Status{REQ_STATUS_TIMEOUT});
    Finish();
}

}  // namespace
