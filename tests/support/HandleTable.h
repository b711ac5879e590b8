// The handles of a scripted WinINet, as mean as the platform's: a number is given out again by the next
// opening after its close, the one that was freed last first, whatever kind it had. Only a handle that a call
// is inside of keeps its number until that call returns.
//
// Each call is held against the thread that makes it. What one worker does from its first call on (Begin) is
// an exchange, and counted from 1; the owner's thread is no exchange. A session is for all. A connection or
// a request is for the exchange that has opened it; the owner's thread and later exchanges may only close it.
// Everything else is a fault: a call with a handle that is closed, that was never opened, or whose number
// another exchange has by now. Faults, and handles that are still open, fail the test when the table goes.
#pragma once

#include <windows.h>
#include <wininet.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "support/Mutex.h"

// One opened handle. Each kind is a class of its own.
struct CHandleObject
{
    explicit CHandleObject(const char* pszItsKind, bool bIsForAll = false)
        : pszKind(pszItsKind), bForAll(bIsForAll)
    {
    }
    virtual ~CHandleObject() = default;

    const char* const pszKind;
    const bool bForAll;
    std::string name;  // the kind and a number that counts the kind's openings from 1
    unsigned exchange = 0;
    int callsInside = 0;
    bool bClosed = false;
};

class CHandleTable
{
public:
    CHandleTable() = default;
    ~CHandleTable();
    CHandleTable(const CHandleTable&) = delete;
    CHandleTable& operator=(const CHandleTable&) = delete;

    // The calling thread begins an exchange.
    void Begin();

    HINTERNET Open(std::shared_ptr<CHandleObject> pObject);
    // The platform's answer.
    BOOL Close(HINTERNET handle);
    // False when that does not happen in time.
    bool WaitForClose(const CHandleObject& object);

    std::string NameOf(HINTERNET handle) const;
    // Counts the openings of each kind from 1 again.
    void ForgetNames();
    std::vector<std::string> TakeFaults();
    // The names of what is still open, which is closed then.
    std::vector<std::string> TakeOpen();

    // One call with a handle, from its beginning to its end.
    class CCall
    {
    public:
        CCall(CHandleTable& table, const char* pszFunction, HINTERNET handle);
        ~CCall();
        CCall(const CCall&) = delete;
        CCall& operator=(const CCall&) = delete;

        const std::string& Name() const { return m_name; }
        // What the call reaches. Null when the handle is open to nobody or of another kind: then the platform
        // refuses the call, and the last error says so.
        template <typename Object>
        Object* Reach() const
        {
            auto* const pObject = dynamic_cast<Object*>(m_pObject.get());
            SetLastError(m_pObject == nullptr ? ERROR_INVALID_HANDLE
                         : pObject == nullptr ? ERROR_INTERNET_INCORRECT_HANDLE_TYPE
                                              : ERROR_SUCCESS);
            return pObject;
        }

    private:
        CHandleTable& m_table;
        const HINTERNET m_handle;
        std::string m_name;
        std::shared_ptr<CHandleObject> m_pObject;
    };

private:
    using Objects = std::map<HINTERNET, std::shared_ptr<CHandleObject>>;

    std::string NameLocked(HINTERNET handle) const;
    unsigned ExchangeLocked() const;
    void FreeLocked(HINTERNET handle);
    void FaultLocked(const char* pszFunction, const std::string& what);

    const DWORD m_dwOwnerId = GetCurrentThreadId();
    mutable CMutex m_mutex;
    CCondition m_closed;
    Objects m_objects;
    std::map<HINTERNET, std::string> m_names;  // of all numbers that were ever given out
    std::vector<HINTERNET> m_free;
    std::map<std::string, int> m_counts;
    std::map<DWORD, unsigned> m_exchanges;  // the last one of each thread
    unsigned m_lastExchange = 0;
    std::vector<std::string> m_faults;
};
