// Unloading the trace library: nothing of it stays behind, whatever its threads are at.
#include <gmock/gmock.h>

#include "support/Gate.h"
#include "support/ImportPatch.h"
#include "support/SideThread.h"
#include "system/NothingLeft.h"
#include "system/tracelib/TracedFile.h"

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace
{

// The next slot that a thread's values would be kept in.
DWORD NextSlot()
{
    const DWORD dwSlot = TlsAlloc();
    TlsFree(dwSlot);
    return dwSlot;
}

TEST(TraceUnloadTest, LeavesNothingBehind)
{
    CTracedFile file;
    const DWORD dwSlot = NextSlot();
    ExpectNothingLeft(
        []
        {
            CLoadedTraceLibrary library;
            library.Write("a");
            CSideThread([&] { library.Write(std::string(10000, 'b')); }).Join();
            EXPECT_TRUE(library.Free());
        });
    EXPECT_TRUE(DeleteFileW(file.Path().c_str())) << "the file is still open";
    EXPECT_EQ(NextSlot(), dwSlot);
}

TEST(TraceUnloadTest, LeavesNothingBehindWhenNothingWasTraced)
{
    ExpectNothingLeft(
        []
        {
            CLoadedTraceLibrary library;
            EXPECT_TRUE(library.Free());
        });
}

TEST(TraceUnloadTest, ManyTimesInOneProcess)
{
    CTracedFile file;
    constexpr size_t kTimes = 300;
    for (size_t count = 0; count < kTimes; ++count)
    {
        CLoadedTraceLibrary library;
        library.Write(std::to_string(count));
        ASSERT_TRUE(library.Free());
    }
    EXPECT_THAT(file.Texts(), SizeIs(kTimes));
}

HANDLE WINAPI CreateLate(LPSECURITY_ATTRIBUTES pSecurity, SIZE_T stack, LPTHREAD_START_ROUTINE pfnStart,
                         LPVOID pParameter, DWORD dwFlags, LPDWORD pdwThread)
{
    return CreateThread(pSecurity, stack, pfnStart, pParameter, dwFlags | CREATE_SUSPENDED, pdwThread);
}

TEST(TraceUnloadTest, WritesWhatAThreadThatNeverBeganWasToWrite)
{
    CTracedFile file;
    CLoadedTraceLibrary library;
    CImportPatches imports(library.Module());
    imports.Add("CreateThread", CreateLate);
    library.Write("early");
    EXPECT_TRUE(library.Free());
    imports.Forget();
    EXPECT_THAT(file.Texts(), ElementsAre("early,"));
    EXPECT_THAT(file.Notes(), SizeIs(2));
}

CGate* g_pBegun = nullptr;
CGate* g_pGoOn = nullptr;
decltype(&WriteFile) g_pfnWriteFile = nullptr;

BOOL WINAPI WriteWhenTold(HANDLE hFile, LPCVOID pBytes, DWORD cb, LPDWORD pcb, LPOVERLAPPED pPlace)
{
    g_pBegun->Open();
    g_pGoOn->Wait();
    return g_pfnWriteFile(hFile, pBytes, cb, pcb, pPlace);
}

void WINAPI GoOnWhenTheUnloadWaits(DWORD dwTime)
{
    g_pGoOn->Open();
    Sleep(dwTime);
}

TEST(TraceUnloadTest, WaitsForAThreadThatIsWithinACall)
{
    CTracedFile file;
    CGate begun;
    CGate goOn;
    g_pBegun = &begun;
    g_pGoOn = &goOn;
    CLoadedTraceLibrary library;
    CImportPatches imports(library.Module());
    g_pfnWriteFile = imports.Add("WriteFile", WriteWhenTold);
    std::atomic<bool> bReturned = false;
    CSideThread tracing(
        [&]
        {
            library.Write("within");
            bReturned = true;
        });
    ASSERT_TRUE(begun.Wait());
    imports.Add("Sleep", GoOnWhenTheUnloadWaits);
    EXPECT_TRUE(library.Free());
    EXPECT_TRUE(bReturned) << "the code has gone under a thread";
    imports.Forget();
    EXPECT_THAT(file.Texts(), ElementsAre("within,"));
    EXPECT_THAT(file.Notes(), Contains("trace ends"));
}

TEST(TraceUnloadTest, KilledThreadHoldsNobodyAndItsRecordIsCutOff)
{
    CTracedFile file;
    CLoadedTraceLibrary library;
    CGate begun;
    CSideThread victim(
        [&]
        {
            library.Piece(" " + std::string(2046, 'v'));
            begun.Open();
            Sleep(INFINITE);
        });
    ASSERT_TRUE(begun.Wait());
    ASSERT_TRUE(victim.Kill());
    library.Write("after");
    EXPECT_THAT(file.Texts(), ElementsAre("after,"));
    EXPECT_TRUE(library.Free());
    EXPECT_THAT(file.Texts(), ElementsAre("after,", std::string(2046, 'v') + " (cut off)"));
}

TEST(TraceUnloadTest, ThreadKilledWhileItWaitsHoldsNobody)
{
    CTracedFile file;
    CGate begun;
    CGate goOn;
    g_pBegun = &begun;
    g_pGoOn = &goOn;
    CLoadedTraceLibrary library;
    CImportPatches imports(library.Module());
    g_pfnWriteFile = imports.Add("WriteFile", WriteWhenTold);
    CSideThread victim([&] { library.Write("victim"); });
    ASSERT_TRUE(begun.Wait());
    ASSERT_TRUE(victim.Kill());
    goOn.Open();
    library.Write("after");
    EXPECT_TRUE(library.Free());
    imports.Forget();
    EXPECT_THAT(file.Texts(), ElementsAre("victim,", "after,"));
}

}  // namespace
