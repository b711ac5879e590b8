// A large answer goes to a file as it comes: nothing of it is lost, and none of it stays in memory.
#include <gtest/gtest.h>

#define PSAPI_VERSION 2  // the functions of kernel32
#include <windows.h>

#include <psapi.h>

#include <algorithm>
#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "support/loopback/LoopbackServer.h"
#include "system/HttpRawHost.h"

namespace
{

constexpr std::uint64_t kSize = std::uint64_t{500} * 1024 * 1024 + 8;
constexpr size_t kBlockWords = 32 * 1024;
constexpr size_t kBlockBytes = kBlockWords * sizeof(std::uint64_t);
constexpr size_t kMaxGrowth = 16 * 1024 * 1024;

using Block = std::vector<std::uint64_t>;

// The body piece by piece, with no pattern that a lost, doubled or displaced piece could hide in.
class CGenerator
{
public:
    void Fill(Block& block)
    {
        for (std::uint64_t& word : block)
        {
            m_state ^= m_state << 13;
            m_state ^= m_state >> 7;
            m_state ^= m_state << 17;
            word = m_state;
        }
    }

private:
    std::uint64_t m_state = 0x2545F4914F6CDD1D;
};

// Of words in their order.
class CChecksum
{
public:
    void Add(const Block& block, size_t cb)
    {
        for (size_t index = 0; index < cb / sizeof(std::uint64_t); ++index)
        {
            m_sum = (m_sum ^ block[index]) * 0x00000100000001B3;
            m_sum ^= m_sum >> 29;
        }
        m_size += cb;
    }
    bool operator==(const CChecksum&) const = default;
    friend std::ostream& operator<<(std::ostream& stream, const CChecksum& checksum)
    {
        return stream << checksum.m_size << " bytes with the checksum " << std::hex << checksum.m_sum
                      << std::dec;
    }

private:
    std::uint64_t m_sum = 0xCBF29CE484222325;
    std::uint64_t m_size = 0;
};
static_assert(kSize % sizeof(std::uint64_t) == 0, "the checksum counts whole words");

// The one large file of this program. Another run of it waits here; a run that was killed leaves a file
// that the next one replaces.
class CLargeFile
{
public:
    CLargeFile()
    {
        WaitForSingleObject(m_hMutex, kPatienceMs);
        wchar_t szFolder[MAX_PATH + 1] = {};
        GetTempPathW(MAX_PATH + 1, szFolder);
        m_path = std::wstring(szFolder) + L"kvhttp_large_download.bin";
        DeleteFileW(Path());
    }
    ~CLargeFile()
    {
        DeleteFileW(Path());
        ReleaseMutex(m_hMutex);
        CloseHandle(m_hMutex);
    }
    CLargeFile(const CLargeFile&) = delete;
    CLargeFile& operator=(const CLargeFile&) = delete;

    const wchar_t* Path() const { return m_path.c_str(); }

    CChecksum Read() const
    {
        CChecksum checksum;
        const HANDLE hFile =
            CreateFileW(Path(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, FILE_FLAG_SEQUENTIAL_SCAN, nullptr);
        EXPECT_NE(hFile, INVALID_HANDLE_VALUE) << "error " << GetLastError();
        Block block(kBlockWords);
        DWORD cb = 0;
        while (ReadFile(hFile, block.data(), DWORD{kBlockBytes}, &cb, nullptr) && cb != 0)
        {
            checksum.Add(block, cb);
        }
        CloseHandle(hFile);
        return checksum;
    }

private:
    const HANDLE m_hMutex = CreateMutexW(nullptr, FALSE, L"kvhttp large download");
    std::wstring m_path;
};

size_t PeakMemory()
{
    PROCESS_MEMORY_COUNTERS counters{};
    GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof(counters));
    return counters.PeakWorkingSetSize;
}

TEST(LargeDownloadTest, FiveHundredMegabytesArriveUnchangedInConstantMemory)
{
    CChecksum sent;
    bool bMadeWhole = false;
    CLoopbackServer server(
        [&](const CLoopbackRequest&, CLoopbackConnection& connection)
        {
            connection.Send("HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(kSize) + "\r\n\r\n");
            CGenerator generator;
            Block block(kBlockWords);
            std::uint64_t rest = kSize;
            while (rest != 0)
            {
                const size_t cb = static_cast<size_t>(std::min<std::uint64_t>(rest, kBlockBytes));
                generator.Fill(block);
                sent.Add(block, cb);
                if (!connection.Send({reinterpret_cast<const char*>(block.data()), cb}))
                {
                    return;
                }
                rest -= cb;
            }
            bMadeWhole = true;
        });
    const CLargeFile file;
    CHttpRawHost host;
    host->SetDownloadFile(file.Path());

    const size_t before = PeakMemory();
    host.Post(server.Url(L"/"));
    Status status = host.AwaitEnd();
    if (status == Status{REQ_STATUS_RECEIVING})
    {
        status = host.AwaitEnd();  // a busy machine gets twice the time
    }
    EXPECT_EQ(status, Status{REQ_STATUS_DONE});
    EXPECT_LT(PeakMemory() - before, kMaxGrowth);
    EXPECT_EQ(host.TakeAnswer(), std::nullopt);
    host.Release();
    server.Stop();
    EXPECT_TRUE(bMadeWhole) << "the server was not asked for all of it";
    EXPECT_EQ(file.Read(), sent);
}

}  // namespace
