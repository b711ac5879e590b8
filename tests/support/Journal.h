// What the product did to the scripted platform, as texts in the order of the calls, from all threads.
// Every scripted function writes its call here before it acts, and then runs the actions that the test
// has bound to that call, on the thread that makes it: a test waits for a call, or acts in its middle.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "support/Mutex.h"

enum CallKind : unsigned
{
    CALL_NET = 1,
    CALL_FILE = 2,
    CALL_WINDOW = 4,
    CALL_THREAD = 8,
    CALL_LIBRARY = 16,
    CALL_TRACE = 32,
};

class CJournal
{
public:
    void Add(CallKind kind, const std::string& text);

    // Runs action within the nth entry (from 1) that begins with prefix, counted from now on.
    void On(const std::string& prefix, int nth, std::function<void()> action);

    // Waits until nth entries that begin with prefix are there; false when they do not come in time.
    bool WaitFor(const std::string& prefix, size_t nth = 1);

    std::vector<std::string> Texts(unsigned kinds) const;
    size_t Count(const std::string& prefix) const;
    void Clear();

private:
    struct Entry
    {
        CallKind kind;
        std::string text;
    };
    struct Watch
    {
        std::string prefix;
        int remaining;
        std::function<void()> action;
    };

    size_t CountLocked(const std::string& prefix) const;

    mutable CMutex m_mutex;
    CCondition m_added;
    std::vector<Entry> m_entries;
    std::vector<Watch> m_watches;
};
