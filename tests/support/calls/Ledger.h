// What a module has taken of the platform and not given back: blocks, handles, keys, libraries, and what else
// its calls open and close. Giving back what is not there is a fault. From all threads.
#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "support/Mutex.h"

class CLedger
{
public:
    // Nothing is noted for a null value.
    void Open(const char* pszKind, const void* pValue);
    void Close(const char* pszKind, const void* pValue);
    // The same; what was opened before this ledger began is no fault.
    void CloseIfKnown(const char* pszKind, const void* pValue);

    int Count(const char* pszKind) const;

    // Both as texts.
    std::vector<std::string> Left() const;
    std::vector<std::string> Faults() const;

private:
    using Key = std::pair<std::string, const void*>;

    void CloseOne(const char* pszKind, const void* pValue, bool bMustBeKnown);

    mutable CMutex m_mutex;
    std::map<Key, int> m_counts;  // 0: it was there once
    std::vector<std::string> m_faults;
};
