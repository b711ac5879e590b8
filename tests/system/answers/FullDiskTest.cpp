// A disk that is full, or becomes so: the exchange ends as if nothing had happened, and the file is short.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "support/ImportPatch.h"
#include "support/loopback/LoopbackServer.h"
#include "support/WineVersion.h"
#include "system/answers/TargetFolder.h"
#include "system/HttpRawHost.h"

namespace
{

constexpr size_t kPiece = 16384;

// A disk that takes of each write as many bytes as the test says, and refuses the rest like a full one.
class CSmallDisk
{
public:
    // One number for each write; what comes after them finds room.
    explicit CSmallDisk(std::vector<DWORD> room) : m_room(std::move(room)) { s_pThis = this; }
    ~CSmallDisk() { s_pThis = nullptr; }
    CSmallDisk(const CSmallDisk&) = delete;
    CSmallDisk& operator=(const CSmallDisk&) = delete;

    size_t Writes() const { return m_cWrites; }

private:
    static BOOL WINAPI Write(HANDLE hFile, LPCVOID pBytes, DWORD cb, LPDWORD pcbWritten, LPOVERLAPPED)
    {
        const size_t index = s_pThis->m_cWrites++;
        const DWORD room = index < s_pThis->m_room.size() ? s_pThis->m_room[index] : cb;
        *pcbWritten = 0;
        WriteFile(hFile, pBytes, std::min(cb, room), pcbWritten, nullptr);
        SetLastError(ERROR_DISK_FULL);
        return room >= cb;
    }

    static inline CSmallDisk* s_pThis = nullptr;

    const std::vector<DWORD> m_room;
    size_t m_cWrites = 0;
    CImportPatch m_patch{CHttpRawHost::Module(), "WriteFile", Write};
};

class FullDiskTest : public testing::Test
{
protected:
    void Download(const std::wstring& path)
    {
        m_host->SetDownloadFile(path.c_str());
        m_host->SetTimeout(1);
        EXPECT_EQ(m_host.PostAndAwaitEnd(m_server.Url(L"/")), Status{m_expected});
    }
    std::string Piece(size_t index) const { return m_body.substr(index * kPiece, kPiece); }

    const std::string m_body = MakeBytes(3 * kPiece + 1);
    unsigned long m_expected = REQ_STATUS_DONE;
    CTargetFolder m_folder;
    CLoopbackServer m_server{[this](const CLoopbackRequest&, CLoopbackConnection& connection)
                             { connection.Send(MakeAnswer(200, m_body)); }};
    CHttpRawHost m_host;
};

// The system below Wine has a file that takes nothing, for want of room. Windows has no such path.
TEST_F(FullDiskTest, ADeviceWithoutRoomEndsDone)
{
    m_expected = IsWine() ? REQ_STATUS_DONE : REQ_STATUS_TIMEOUT;
    Download(L"\\\\?\\unix\\dev\\full");
    EXPECT_EQ(m_host.TakeAnswer(), std::nullopt);
    EXPECT_EQ(m_host.PostAndAwaitEnd(m_server.Url(L"/")), Status{REQ_STATUS_DONE}) << "the next, to memory";
    EXPECT_TRUE(m_host.TakeAnswer().has_value());
}

TEST_F(FullDiskTest, ADiskThatFillsUpKeepsTheBeginning)
{
    const CSmallDisk disk({kPiece, 3616, 0, 0});
    Download(m_folder.Path() + L"file");
    EXPECT_EQ(disk.Writes(), 4u) << "every piece is tried";
    EXPECT_TRUE(m_folder.Files() == (FileContents{{L"file", m_body.substr(0, 20000)}}));
}

// What found no room is not tried again: the file then lacks a piece in the middle.
TEST_F(FullDiskTest, ADiskThatGetsRoomAgainLosesWhatCameBetween)
{
    const CSmallDisk disk({kPiece, 0});
    Download(m_folder.Path() + L"file");
    EXPECT_EQ(disk.Writes(), 4u);
    EXPECT_TRUE(m_folder.Files() == (FileContents{{L"file", Piece(0) + Piece(2) + Piece(3)}}));
}

TEST_F(FullDiskTest, ADiskWithoutAnyRoomLeavesAnEmptyFile)
{
    const CSmallDisk disk({0, 0, 0, 0});
    Download(m_folder.Path() + L"file");
    EXPECT_TRUE(m_folder.Files() == (FileContents{{L"file", ""}}));
}

}  // namespace
