// Measures the component beside what a host could use in its place, all in turns in this one process and
// against one server. benchmarks/bench.py runs it: the server's address, the form, the file of records, the
// port of the clock of processor time, and this process's number on the Unix host are its arguments.
#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "Component.h"
#include "Figures.h"
#include "PlatformExchange.h"
#include "SystemClass.h"
#include "Work.h"

namespace
{

//                         rounds, per turn, MB, figures, text, file, millions, pairs, looks
constexpr CScale kSmoke = {0, 1, 1, 2, 1, 2, 1, 1, false};  // only what is not timed
constexpr CScale kQuick = {10, 3, 10, 50, 4, 64, 10, 0, true};
constexpr CScale kFull = {40, 5, 100, 200, 64, 1024, 10, 150, true};
constexpr size_t kKB = 1024;
constexpr size_t kMB = 1048576;
constexpr size_t kSmallForm = 16;
constexpr int kFileRounds = 10;  // the disk is slow

const CScale& FindScale(const char* pszForm)
{
    return std::strcmp(pszForm, "full") == 0 ? kFull : std::strcmp(pszForm, "quick") == 0 ? kQuick : kSmoke;
}

CClient Platform(const char* pszName, PlatformWay way)
{
    CClient client;
    client.name = pszName;
    client.bWritesFiles = true;
    client.bRunsBesideCaller = way != ON_CALLERS_THREAD;
    client.bMustWork = true;
    client.make = [=](bool) { return std::make_unique<CPlatformExchange>(way); };
    return client;
}

CClient Component(const char* pszName, const CModule& module, DWORD dwPollMs)
{
    CClient client;
    client.name = pszName;
    client.dwPollMs = dwPollMs;
    client.bWritesFiles = true;
    client.bMustWork = true;
    client.make = [&module](bool) { return std::make_unique<CComponentPoster>(module); };
    return client;
}

CClient System(const char* pszName, const wchar_t* pszProgId)
{
    CClient client;
    client.name = pszName;
    client.make = [=](bool bManyAtOnce) { return std::make_unique<CSystemClass>(pszProgId, bManyAtOnce); };
    return client;
}

std::vector<CWork> AllWork(const CScale& scale, const std::wstring& server)
{
    const auto answerOf = [&](size_t length)
    { return MakeTask(server + L"/" + std::to_wstring(length), kSmallForm, PreparedText(length)); };
    const auto formOf = [&](size_t length)
    { return MakeTask(server + L"/form", length, std::to_string(length)); };
    CTask file = answerOf(0);
    file.url = server + L"/" + std::to_wstring(static_cast<size_t>(scale.megabytes) * kMB);
    file.file = ProgramFolder() + L"benchmark.bin";
    std::vector<CWork> all = {
        {.name = "answer of 0 bytes", .task = answerOf(0), .perTurn = scale.perTurn, .pairs = scale.pairs},
        {.name = "answer of 1 KB", .task = answerOf(kKB), .perTurn = scale.perTurn, .pairs = scale.pairs},
        {.name = "answer of 49,153 bytes",
         .task = answerOf(49153),
         .perTurn = scale.perTurn,
         .pairs = scale.pairs},
        {.name = "answer of 1 MB", .task = answerOf(kMB), .perTurn = scale.perTurn},
        {.name = "form of 1 KB", .task = formOf(kKB), .perTurn = scale.perTurn, .pairs = scale.pairs},
        {.name = "form of 64 KB", .task = formOf(64 * kKB), .perTurn = scale.perTurn, .pairs = scale.pairs},
        {.name = "form of 10 MB", .task = formOf(10 * kMB)},
        {.name = "first exchange", .task = formOf(kKB), .perTurn = scale.perTurn, .bFresh = true},
        {.name = "1 object", .task = formOf(kKB), .perTurn = scale.perTurn},
        {.name = "4 objects at once", .task = formOf(kKB), .perTurn = scale.perTurn, .atOnce = 4},
        {.name = "16 objects at once",
         .task = formOf(kKB),
         .perTurn = std::max(1, scale.perTurn / 2),
         .atOnce = 16,
         .pairs = scale.pairs / 5},
        {.name = "file of " + std::to_string(scale.megabytes) + " MB",
         .task = file,
         .bFile = true,
         .pairs = scale.pairs / 5},
    };
    for (CWork& work : all)
    {
        work.rounds = scale.rounds;
    }
    all.back().rounds = std::min(scale.rounds, kFileRounds);
    return all;
}

void Run(const CScale& scale, const std::wstring& server, CRecord& record, const std::string& unixProcess,
         unsigned short clockPort)
{
    auto step = [number = 0](const char* pszWhat) mutable
    {
        std::printf("[%d/15] %s\n", ++number, pszWhat);
        std::fflush(stdout);
    };
    step("loading");
    MeasureLoading(record, scale.figures / 2, L"loaded\\kvHttp.dll");
    const CModule module(L"kvHttp.dll");
    const CModule traced(L"traced\\kvHttp.dll");
    const CTask small = MakeTask(server + L"/form", kKB, std::to_string(kKB));
    step("calls");
    MeasureCalls(record, scale.figures, module, small);
    MeasureEncoding(record, 1 + scale.figures / 20, scale.millions);
    MeasureTextCalls(record, scale.figures);

    std::vector<CClient> clients = {
        Platform("WinINet", ON_CALLERS_THREAD),
        Platform("unit", ON_OWN_THREAD),
        Platform("unit, text", ON_OWN_THREAD_WITH_TEXT),
        Component("component", module, 0),
        Component("component 1 ms", module, 1),
        Component("component 15 ms", module, 15),
        Component("component, traced", traced, 0),
        System("XMLHTTP", L"MSXML2.XMLHTTP.6.0"),
        System("ServerXMLHTTP", L"MSXML2.ServerXMLHTTP.6.0"),
        System("WinHttpRequest", L"WinHttp.WinHttpRequest.5.1"),
    };
    CClient& unit = clients[1];
    CClient& component = clients[3];
    unit.bPaired = component.bPaired = true;
    CPeakMemory memory(unixProcess);
    CProcessorClock processor(clockPort, unixProcess);
    CBenchmark benchmark(scale, clients, record, memory, processor);
    for (const CWork& work : AllWork(scale, server))
    {
        step(work.name.c_str());
        benchmark.Run(work);
    }
    step("growth and memory");
    MeasureGrowth(record, memory, scale.largestText, unit, server);
    MeasureGrowth(record, memory, scale.largestText, component, server);
    const std::wstring file = ProgramFolder() + L"benchmark.bin";
    MeasureFileMemory(record, memory, scale.largestFile, component, server, file);
    DeleteFileW(file.c_str());
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc < 6)
    {
        std::printf("usage: Benchmark URL quick|full|smoke RECORDS PORT PROCESS\n");
        return 2;
    }
    CoInitialize(nullptr);
    CRecord record(argv[3]);
    if (!record.IsOpen())
    {
        std::printf("Benchmark: %s cannot be written\n", argv[3]);
        return 2;
    }
    try
    {
        const std::string server(argv[1]);
        Run(FindScale(argv[2]), std::wstring(server.begin(), server.end()), record, argv[5],
            static_cast<unsigned short>(std::atoi(argv[4])));
    }
    catch (const CFailure& failure)
    {
        std::printf("Benchmark: %s\n", failure.what());
        return 1;
    }
    return 0;
}
