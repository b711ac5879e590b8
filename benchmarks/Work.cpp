#include "Work.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace
{

constexpr size_t kLine = 16;
constexpr long long kLines = 65536;
constexpr long long kPlaces = 1000;
constexpr int kTries = 3;

std::string PreparedLine(long long number)
{
    char szLine[kLine + 1] = {};
    std::snprintf(szLine, sizeof(szLine), "%015lld\n", number % kLines);
    return szLine;
}

void Rest(DWORD dwPollMs)
{
    if (dwPollMs == 0)
    {
        SwitchToThread();
    }
    else
    {
        Sleep(dwPollMs);
    }
}

// The order changes from round to round, so that in as many rounds as there are clients, an even number, each
// has every place once and follows every other once: one that has kept the processor busy, or has left it
// idle, makes the next one slower or faster.
std::vector<size_t> OrderOfTurns(size_t clients, size_t round)
{
    std::vector<size_t> order;
    for (size_t place = 0; place < clients; ++place)
    {
        const size_t step = (place + 1) / 2;
        order.push_back(((place % 2 != 0 ? step : clients - step) + round) % clients);
    }
    return order;
}

void AwaitEnd(const CClient& client, CPoster& poster)
{
    while (!poster.HasEnded())
    {
        Rest(client.dwPollMs);
    }
}

// The component's starter writes its status last: one that waits for a processor meanwhile writes it over the
// end.
double MeasureToEnd(CRecord& record, const CClient& client, const std::function<void()>& exchange)
{
    for (int tries = 1;; ++tries)
    {
        try
        {
            return Measure(exchange);
        }
        catch (const CLostEnd&)
        {
            record.Add({"lost", client.name});
            if (tries == kTries)
            {
                throw;
            }
        }
    }
}

}  // namespace

double TimeExchange(CRecord& record, const CClient& client, CPoster& poster, const CTask& task)
{
    const double time = MeasureToEnd(record, client,
                                     [&]
                                     {
                                         poster.Start(task);
                                         AwaitEnd(client, poster);
                                         poster.TakeAnswer(task);
                                     });
    if (!poster.HasAnswer(task))
    {
        throw CFailure("the answer is not the expected one");
    }
    return time;
}

void CBenchmark::Run(const CWork& work)
{
    std::vector<Posters> posters(m_clients.size());
    std::vector<bool> able(m_clients.size());
    for (size_t i = 0; i < m_clients.size(); ++i)
    {
        able[i] = CanDo(work, m_clients[i]) && Try(work, m_clients[i],
                                                   [&]
                                                   {
                                                       posters[i] = Make(work, m_clients[i]);
                                                       Sample(work, m_clients[i], posters[i]);
                                                   });
    }
    for (int round = 0; round < work.rounds; ++round)
    {
        for (const size_t i : OrderOfTurns(m_clients.size(), static_cast<size_t>(round)))
        {
            able[i] =
                able[i] && Try(work, m_clients[i], [&] { Turn(work, m_clients[i], posters[i], round); });
        }
    }
    for (int pair = 0; pair < work.pairs; ++pair)
    {
        RunPair(work, posters, work.rounds + pair);
    }
    posters.clear();
    for (size_t i = 0; i < m_clients.size(); ++i)
    {
        if (able[i] && m_scale.bLooks)
        {
            Try(work, m_clients[i], [&] { Look(work, m_clients[i]); });
        }
    }
}

bool CBenchmark::CanDo(const CWork& work, const CClient& client) const
{
    const bool bFile = !work.bFile || client.bWritesFiles;
    if (bFile && (work.atOnce == 1 || client.bRunsBesideCaller))
    {
        return true;
    }
    m_record.Add({"none", work.name, client.name, bFile ? "waits for each answer" : "writes no file"});
    return false;
}

CBenchmark::Posters CBenchmark::Make(const CWork& work, const CClient& client) const
{
    Posters posters;
    for (int i = 0; !work.bFresh && i < work.atOnce; ++i)
    {
        posters.push_back(client.make(work.atOnce > 1));
    }
    return posters;
}

double CBenchmark::Sample(const CWork& work, const CClient& client, Posters& posters) const
{
    if (work.bFresh)
    {
        std::unique_ptr<CPoster> pPoster;
        const double made = Measure([&] { pPoster = client.make(false); });
        return made + TimeExchange(m_record, client, *pPoster, work.task);
    }
    if (work.atOnce == 1)
    {
        const double time = TimeExchange(m_record, client, *posters.front(), work.task);
        if (work.bFile && !IsPreparedFile(work.task.file, m_scale.megabytes * 1048576LL))
        {
            throw CFailure("the file is not the expected one");
        }
        return time;
    }
    const double time = MeasureToEnd(m_record, client,
                                     [&]
                                     {
                                         for (const auto& pPoster : posters)
                                         {
                                             pPoster->Start(work.task);
                                         }
                                         for (const auto& pPoster : posters)
                                         {
                                             AwaitEnd(client, *pPoster);
                                             pPoster->TakeAnswer(work.task);
                                         }
                                     });
    if (!std::all_of(posters.begin(), posters.end(),
                     [&](const auto& pPoster) { return pPoster->HasAnswer(work.task); }))
    {
        throw CFailure("an answer is not the expected one");
    }
    return time;
}

// Each second round in the other order, so that each client follows itself and every other.
void CBenchmark::RunPair(const CWork& work, std::vector<Posters>& posters, int round)
{
    for (size_t place = 0; place < m_clients.size(); ++place)
    {
        const size_t i = round % 2 == 0 ? place : m_clients.size() - 1 - place;
        if (m_clients[i].bPaired)
        {
            Turn(work, m_clients[i], posters[i], round);
        }
    }
}

void CBenchmark::Turn(const CWork& work, const CClient& client, Posters& posters, int round)
{
    const double begin = m_processor.Now();
    for (int i = 0; i < work.perTurn; ++i)
    {
        const double time = Sample(work, client, posters);
        m_record.Add({"sample", work.name, client.name}, {double(round), time});
    }
    m_record.Add({"turn", work.name, client.name},
                 {double(round), m_processor.Now() - begin, double(work.perTurn)});
}

// Memory, threads and handles are looked at apart, since looking takes time.
void CBenchmark::Look(const CWork& work, const CClient& client)
{
    const CHoldings before = Holdings();
    const bool bMemory = m_memory.Reset();
    {
        Posters posters = Make(work, client);
        Sample(work, client, posters);
    }
    if (bMemory)
    {
        m_record.Add({"memory", work.name, client.name}, {m_memory.Growth()});
    }
    const CHoldings after = SettledHoldings(before);
    m_record.Add({"left", work.name, client.name},
                 {double(after.threads - before.threads), double(after.handles - before.handles)});
}

bool CBenchmark::Try(const CWork& work, const CClient& client, const std::function<void()>& action)
try
{
    action();
    return true;
}
catch (const CFailure& failure)
{
    m_record.Add({"none", work.name, client.name, failure.what()});
    if (client.bMustWork)
    {
        throw CFailure(client.name + ", " + work.name + ": " + failure.what());
    }
    return false;
}

std::string PreparedText(size_t length)
{
    std::string text;
    text.reserve(length + kLine);
    for (long long number = 0; text.size() < length; ++number)
    {
        text += PreparedLine(number);
    }
    text.resize(length);
    return text;
}

CTask MakeTask(const std::wstring& url, size_t formLength, const std::string& answer)
{
    CTask task;
    task.url = url;
    task.form = "f=" + std::string(formLength - 2, 'x');
    task.wideForm.assign(task.form.begin(), task.form.end());
    task.answer = answer;
    task.wideAnswer.assign(answer.begin(), answer.end());
    return task;
}

bool IsPreparedFile(const std::wstring& file, long long length)
{
    const HANDLE hFile =
        CreateFileW(file.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
    LARGE_INTEGER size = {};
    bool bSound = GetFileSizeEx(hFile, &size) && size.QuadPart == length;
    const long long lines = length / static_cast<long long>(kLine);
    for (long long place = 0; bSound && place < kPlaces; ++place)
    {
        const long long number = place * (lines - 1) / (kPlaces - 1);
        LARGE_INTEGER offset = {};
        offset.QuadPart = number * static_cast<long long>(kLine);
        char szLine[kLine + 1] = {};
        DWORD dwRead = 0;
        bSound = SetFilePointerEx(hFile, offset, nullptr, FILE_BEGIN) &&
                 ReadFile(hFile, szLine, kLine, &dwRead, nullptr) && szLine == PreparedLine(number);
    }
    CloseHandle(hFile);
    return bSound;
}
