// How a row of CPlatformCalls is made: a thunk of the function's own type, its ways to fail, and what its
// calls open and close.
//
//   Row<"InternetConnectW", decltype(InternetConnectW)>(Fails("no memory", nullptr, 8, "2"))
#pragma once

#include <algorithm>
#include <type_traits>
#include <utility>

#include "support/calls/PlatformCalls.h"

void AddWinInetRows(std::vector<CCallRow>& rows);
void AddSystemRows(std::vector<CCallRow>& rows);
void AddDiscoveryRows(std::vector<CCallRow>& rows);
void AddRuntimeRows(std::vector<CCallRow>& rows);
void AddUntouchedRows(std::vector<CCallRow>& rows);

template <size_t size>
struct CCallName
{
    constexpr CCallName(const char (&name)[size]) { std::copy_n(name, size, text); }
    char text[size] = {};
};

// The call is not made; it gives the value and the last error.
template <typename Value>
struct CFails
{
    CFailureWay way;
    Value value;
    DWORD dwError;
};

// The call is made, and says that it has failed.
template <typename Value>
struct CLies
{
    CFailureWay way;
    Value value;
    DWORD dwError;
};

// act gets the function and the arguments, and gives the result.
template <typename Act>
struct CDoes
{
    CFailureWay way;
    Act act;
};

// What the calls open and close: before gets the ledger and the arguments, after the result in front of them.
template <typename Act>
struct CBefore
{
    Act act;
};

template <typename Act>
struct CAfter
{
    Act act;
};

struct CReason
{
    std::string text;
};

struct CMeeting
{
};

template <typename Value>
auto Fails(std::string label, Value value, DWORD dwError, std::string outcomes)
{
    return CFails<Value>{{.label = std::move(label), .outcomes = std::move(outcomes)}, value, dwError};
}

template <typename Value>
auto Lies(std::string label, Value value, DWORD dwError, std::string outcomes)
{
    return CLies<Value>{{.label = std::move(label), .outcomes = std::move(outcomes)}, value, dwError};
}

template <typename Act>
auto Does(std::string label, Act act, std::string outcomes)
{
    return CDoes<Act>{{.label = std::move(label), .outcomes = std::move(outcomes)}, std::move(act)};
}

// On purpose that way leaves what the ledger calls so.
template <typename Way>
Way Leaving(Way way, std::string leaves, std::string why)
{
    way.way.leaves = std::move(leaves);
    way.way.why = std::move(why);
    return way;
}

template <typename Act>
auto Before(Act act)
{
    return CBefore<Act>{std::move(act)};
}

template <typename Act>
auto After(Act act)
{
    return CAfter<Act>{std::move(act)};
}

inline CReason Because(std::string text)
{
    return CReason{std::move(text)};
}

// Keeps the last error as the call or the product has left it.
class CLastErrorKept
{
public:
    CLastErrorKept() = default;
    ~CLastErrorKept() { SetLastError(m_dwLastError); }
    CLastErrorKept(const CLastErrorKept&) = delete;
    CLastErrorKept& operator=(const CLastErrorKept&) = delete;

private:
    const DWORD m_dwLastError = GetLastError();
};

class CCallScope
{
public:
    explicit CCallScope(size_t row) : m_row(row)
    {
        const CLastErrorKept kept;
        m_way = m_pCalls != nullptr ? m_pCalls->Enter(row) : 0;
    }
    ~CCallScope()
    {
        const CLastErrorKept kept;
        if (m_pCalls != nullptr)
        {
            m_pCalls->Leave(m_row);
        }
    }
    CCallScope(const CCallScope&) = delete;
    CCallScope& operator=(const CCallScope&) = delete;

    size_t Way() const { return m_way; }

    template <typename Note, typename... Arguments>
    void Tell(const Note& note, Arguments... arguments) const
    {
        const CLastErrorKept kept;
        if (note && m_pCalls != nullptr)
        {
            note(m_pCalls->Ledger(), arguments...);
        }
    }

private:
    CPlatformCalls* const m_pCalls = CPlatformCalls::Current();
    const size_t m_row;
    size_t m_way = 0;
};

template <CCallName name, typename Function>
struct CThunk;

template <CCallName name, typename Result, typename... Arguments>
struct CThunk<name, Result(Arguments...)>
{
    using Function = Result(Arguments...);
    using Act = std::function<Result(Function*, Arguments...)>;
    using BeforeAct = std::function<void(CLedger&, Arguments...)>;
    struct NoResult
    {
    };
    using Given = std::conditional_t<std::is_void_v<Result>, NoResult, Result>;
    using AfterAct = std::function<void(CLedger&, Given, Arguments...)>;

    static inline size_t s_row = 0;
    static inline void* s_pNext = nullptr;
    static inline std::vector<Act> s_acts;
    static inline BeforeAct s_before;
    static inline AfterAct s_after;

    static Result Call(Arguments... arguments)
    {
        const CCallScope scope(s_row);
        scope.Tell(s_before, arguments...);
        auto* const pfnNext = reinterpret_cast<Function*>(s_pNext);
        if constexpr (std::is_void_v<Result>)
        {
            pfnNext(arguments...);
        }
        else
        {
            const Result result =
                scope.Way() != 0 ? s_acts[scope.Way() - 1](pfnNext, arguments...) : pfnNext(arguments...);
            scope.Tell(s_after, result, arguments...);
            return result;
        }
    }

    template <typename Value>
    static void Take(CCallRow& row, const CFails<Value>& fails)
    {
        row.ways.push_back(fails.way);
        s_acts.push_back(
            [fails](Function*, Arguments...)
            {
                const Result result = fails.value;
                SetLastError(fails.dwError);
                return result;
            });
    }

    template <typename Value>
    static void Take(CCallRow& row, const CLies<Value>& lies)
    {
        row.ways.push_back(lies.way);
        s_acts.push_back(
            [lies](Function* pfnNext, Arguments... arguments)
            {
                pfnNext(arguments...);
                const Result result = lies.value;
                SetLastError(lies.dwError);
                return result;
            });
    }

    template <typename SomeAct>
    static void Take(CCallRow& row, const CDoes<SomeAct>& does)
    {
        row.ways.push_back(does.way);
        s_acts.push_back(does.act);
    }

    template <typename SomeAct>
    static void Take(CCallRow&, const CBefore<SomeAct>& before)
    {
        s_before = before.act;
    }

    template <typename SomeAct>
    static void Take(CCallRow&, const CAfter<SomeAct>& after)
    {
        s_after = after.act;
    }

    static void Take(CCallRow& row, const CReason& reason) { row.reason = reason.text; }
    static void Take(CCallRow& row, CMeeting) { row.bMeeting = true; }
};

template <CCallName name, typename Function, typename... Parts>
CCallRow Row(const Parts&... parts)
{
    using Thunk = CThunk<name, Function>;
    CCallRow row;
    row.name = name.text;
    row.pThunk = reinterpret_cast<void*>(&Thunk::Call);
    row.ppNext = &Thunk::s_pNext;
    row.pIndex = &Thunk::s_row;
    (Thunk::Take(row, parts), ...);
    return row;
}
