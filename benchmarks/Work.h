// The work that all clients do in turns.
#pragma once

#include <string>
#include <vector>

#include "Meter.h"
#include "Poster.h"
#include "Record.h"

struct CWork
{
    std::string name;
    CTask task;
    int perTurn = 1;      // samples that a client takes in its turn
    int atOnce = 1;       // exchanges that run at the same time, each of an object of its own
    bool bFresh = false;  // each sample makes its object
    bool bFile = false;
    int rounds = 0;
    int pairs = 0;  // further rounds of those clients alone whose difference must be told exactly
};

// In a form that is quick, full, or only shows that all works.
struct CScale
{
    int rounds;
    int perTurn;      // of small work
    int megabytes;    // of the answer into a file
    int figures;      // values of what is measured apart
    int largestText;  // in MB, of the answers that grow in memory
    int largestFile;  // in MB, of the answers that show the memory
    int millions;     // of bytes, in the form that is encoded
    int pairs;        // of small work
    bool bLooks;      // at memory, threads and handles
};

class CBenchmark
{
public:
    CBenchmark(const CScale& scale, std::vector<CClient>& clients, CRecord& record, CPeakMemory& memory,
               CProcessorClock& processor)
        : m_scale(scale), m_clients(clients), m_record(record), m_memory(memory), m_processor(processor)
    {
    }

    // All clients in turns, each with its posters.
    void Run(const CWork& work);

private:
    using Posters = std::vector<std::unique_ptr<CPoster>>;

    bool CanDo(const CWork& work, const CClient& client) const;
    Posters Make(const CWork& work, const CClient& client) const;
    double Sample(const CWork& work, const CClient& client, Posters& posters) const;
    void RunPair(const CWork& work, std::vector<Posters>& posters, int round);
    void Turn(const CWork& work, const CClient& client, Posters& posters, int round);
    void Look(const CWork& work, const CClient& client);
    // False, and recorded, when the client failed at it.
    bool Try(const CWork& work, const CClient& client, const std::function<void()>& action);

    const CScale m_scale;
    std::vector<CClient>& m_clients;
    CRecord& m_record;
    CPeakMemory& m_memory;
    CProcessorClock& m_processor;
};

// From Start to the taken answer. An exchange whose end is lost is recorded and repeated. Raises CFailure
// when the answer is not the expected one.
double TimeExchange(CRecord& record, const CClient& client, CPoster& poster, const CTask& task);

// The first length bytes of what the server's prepared files hold.
std::string PreparedText(size_t length);
CTask MakeTask(const std::wstring& url, size_t formLength, const std::string& answer);
// That the file is of that many bytes of the prepared text; looked at in a thousand places.
bool IsPreparedFile(const std::wstring& file, long long length);
