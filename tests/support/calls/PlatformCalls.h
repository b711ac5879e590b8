// Every call that a loaded module makes of the platform, seen one by one: of all functions in its import
// table, and of those that it looks up at run time. A row for each function says how it can fail. A test
// counts the calls, lets one fail, or acts before and behind one. A function without a row is named in
// Unknown, so that a new call of the product cannot be forgotten.
//
// The rows stand above whatever else scripts the module's imports: attach this last. The module is unloaded
// with them in place.
#pragma once

#include <windows.h>

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "support/calls/Ledger.h"

// One way in which a function fails.
struct CFailureWay
{
    std::string label;
    std::string outcomes;     // how an exchange may end after it; CExchangeRun says what the letters mean
    std::string leaves = {};  // what may be left on purpose then, and why
    std::string why = {};
};

struct CCallRow
{
    std::string name;
    void* pThunk = nullptr;    // null: the calls are left alone
    void** ppNext = nullptr;   // what the thunk calls in the end
    size_t* pIndex = nullptr;  // where the thunk keeps its place among the rows
    std::vector<CFailureWay> ways;
    std::string reason;     // why there is no way to fail, or why something is left on purpose
    bool bMeeting = false;  // of interest to what another thread does meanwhile
};

// All of them, made once.
const std::vector<CCallRow>& CallRows();
const CCallRow* FindCallRow(const std::string& name);

class CPlatformCalls
{
public:
    // The nth call of a function, counted from 1 over all threads, fails in one of its ways.
    struct Failure
    {
        size_t row = 0;
        size_t way = 0;
        unsigned nth = 0;
        bool bFromThenOn = false;  // and all later ones do too
    };

    explicit CPlatformCalls(HMODULE hModule);
    ~CPlatformCalls();
    CPlatformCalls(const CPlatformCalls&) = delete;
    CPlatformCalls& operator=(const CPlatformCalls&) = delete;

    // Counts from here on.
    void Begin();
    void Begin(const Failure& failure);
    // How often the failure has happened.
    unsigned Failures() const { return m_failures; }
    unsigned Count(size_t row) const { return m_counts[row]; }

    // The functions without a row that the module imports or has looked up.
    std::vector<std::string> Unknown() const;

    CLedger& Ledger() { return m_ledger; }

    // Runs before and behind each call, on the thread that makes it; set before Begin.
    std::function<void(const CCallRow& row, bool bBehind)> m_onCall;

    // For the thunks. Null while there is none.
    static CPlatformCalls* Current() { return s_pCurrent; }
    // The way in which this call fails, counted from 1; 0 for none.
    size_t Enter(size_t row);
    void Leave(size_t row);
    // What the module gets for a function that it has looked up.
    FARPROC Wrap(const char* pszName, FARPROC pfn);

private:
    static inline std::atomic<CPlatformCalls*> s_pCurrent = nullptr;

    std::unique_ptr<std::atomic<unsigned>[]> m_counts;
    std::atomic<bool> m_bBegun{false};
    Failure m_failure;
    std::atomic<unsigned> m_failures{0};
    CLedger m_ledger;
    mutable CMutex m_mutex;
    std::vector<std::string> m_unknown;
};
