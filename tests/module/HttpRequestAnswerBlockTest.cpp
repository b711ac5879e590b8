// The block that holds an answer in memory, and the count of an answer's bytes, as the request keeps them.
#include <algorithm>
#include <cstring>

#include "module/HttpRawTest.h"
#include "request/HttpRequest.h"

using testing::ElementsAre;

namespace
{

CJournal* g_pJournal = nullptr;
std::atomic<void*> g_pBlock = nullptr;
void*(__cdecl* g_pfnRealloc)(void*, size_t) = nullptr;
void(__cdecl* g_pfnFree)(void*) = nullptr;

std::atomic<size_t> g_cbLargest = 0;

// Refuses what no test reads.
void* __cdecl RecordRealloc(void* block, size_t cb)
{
    constexpr size_t kTooMuch = size_t{1} << 30;
    g_cbLargest = std::max<size_t>(g_cbLargest, cb);
    void* const pGrown = cb < kTooMuch ? g_pfnRealloc(block, cb) : nullptr;
    g_pBlock = pGrown;
    return pGrown;
}

void __cdecl RecordFree(void* block)
{
    if (block != nullptr && block == g_pBlock)
    {
        g_pBlock = nullptr;
        g_pJournal->Add(CALL_NET, "free(answer)");
    }
    g_pfnFree(block);
}

// What the next reads say that they have read, the last one for ever.
std::vector<DWORD> g_counts;

BOOL WINAPI ReadWithoutBytes(HINTERNET, LPVOID, DWORD, LPDWORD pcbRead)
{
    *pcbRead = g_counts.front();
    if (g_counts.size() > 1)
    {
        g_counts.erase(g_counts.begin());
    }
    return TRUE;
}

class HttpRequestAnswerBlockTest : public HttpRawTest
{
protected:
    HttpRequestAnswerBlockTest()
    {
        g_pJournal = &m_journal;
        g_pfnRealloc = m_pModule->Imports().Add("realloc", RecordRealloc);
        g_pfnFree = m_pModule->Imports().Add("free", RecordFree);
    }

    // Whether a field of the request object has that value; only a count of bytes does.
    bool RequestHolds(DWORD dwValue) const
    {
        const auto* const pObject = static_cast<const char*>(m_system.Worker());
        for (size_t at = 0; at + sizeof(dwValue) <= sizeof(CHttpRequest); at += sizeof(dwValue))
        {
            if (std::memcmp(pObject + at, &dwValue, sizeof(dwValue)) == 0)
            {
                return true;
            }
        }
        return false;
    }

    static constexpr DWORD kLength = 0x1D431;
};

TEST_F(HttpRequestAnswerBlockTest, GoesWithTheRequest)
{
    m_winInet.m_reads.Then({"answer"});
    Post();
    ClearJournal();
    ReleaseComponent();
    EXPECT_THAT(Net(), ElementsAre("InternetCloseHandle(request1)", "free(answer)",
                                   "InternetCloseHandle(connect1)", "InternetCloseHandle(session1)"));
}

TEST_F(HttpRequestAnswerBlockTest, GoesOnlyWhenTheWorkerHasBeenWaitedFor)
{
    m_winInet.m_reads.Then({"answer"});
    // On its way out, with the answer there.
    CHold leaving(m_journal, Leave("CHttpRequest::UpdateRequestStatus"), 4);
    PostInto(leaving);
    ClearJournal();
    ReleaseComponent(
        [&]
        {
            EXPECT_EQ(m_journal.Count("free(answer)"), 0u);
            leaving.LetGo();
        });
    EXPECT_EQ(m_journal.Count("free(answer)"), 1u);
}

TEST_F(HttpRequestAnswerBlockTest, GoesBetweenTheConnectionCheckAndTheNextOpening)
{
    m_winInet.m_reads.Then({"first"});
    Post();
    ClearJournal();
    Post();
    Texts calls = Net();
    calls.resize(5);
    EXPECT_THAT(calls, ElementsAre("InternetGetConnectedState(2, 0)", "free(answer)",
                                   "InternetCloseHandle(request1)", "InternetCloseHandle(connect1)",
                                   "InternetConnectW(session1, '127.0.0.1', 80, null, null, 3, 0, 0)"));
}

TEST_F(HttpRequestAnswerBlockTest, StaysWhenThereIsNoConnection)
{
    m_winInet.m_reads.Then({"first"});
    Post();
    m_winInet.m_bConnected = false;
    Post();
    EXPECT_EQ(Status(), 3u);
    EXPECT_EQ(Response(), L"first");
}

TEST_F(HttpRequestAnswerBlockTest, GoesWhenTheReadingIsStopped)
{
    m_winInet.m_reads.Then({"one"}).Then({"two"});
    CHold read(m_journal, "InternetReadFile", 2);
    PostInto(read);
    StatusAfter(60001);
    read.LetGo();
    Finish();
    EXPECT_EQ(m_journal.Count("free(answer)"), 1u);
}

TEST_F(HttpRequestAnswerBlockTest, RequestCountsTheBytesOfAnAnswerInMemory)
{
    m_winInet.m_reads.Then({std::string(kLength, 'x')});
    CHold read(m_journal, "InternetReadFile", 2);
    PostInto(read);
    EXPECT_FALSE(RequestHolds(kLength));
    read.LetGo();
    Finish();
    EXPECT_TRUE(RequestHolds(kLength));
    m_winInet.m_attempts.Then(CScriptedWinInet::Answer(L"404"));
    Post();
    EXPECT_FALSE(RequestHolds(kLength)) << "the next exchange counts anew";
}

TEST_F(HttpRequestAnswerBlockTest, RequestCountsTheBytesOfAnAnswerInAFileAlsoThoseThatWereNotWritten)
{
    m_pHttpRaw->SetDownloadFile(L"C:\\f");
    m_system.m_writes.Then(1);
    m_winInet.m_reads.Then({std::string(kLength, 'x')});
    CHold closing(m_journal, "CloseHandle(file)");
    PostInto(closing);
    EXPECT_FALSE(RequestHolds(kLength));
    closing.LetGo();
    Finish();
    EXPECT_TRUE(RequestHolds(kLength));
}

// Its length is counted in 32 bits, the terminator included.
TEST_F(HttpRequestAnswerBlockTest, GrowsAsFarAsItsLengthCanBeCounted)
{
    m_pModule->Imports().Add("InternetReadFile", ReadWithoutBytes);
    g_cbLargest = 0;
    g_counts = {5, MAXDWORD - 5};
    Post();
    EXPECT_EQ(Status(), 2u);
    EXPECT_EQ(g_cbLargest, 6u);

    g_counts = {5, MAXDWORD - 6};
    Post();
    EXPECT_EQ(Status(), 2u);
    EXPECT_EQ(g_cbLargest, size_t{MAXDWORD});
}

}  // namespace
