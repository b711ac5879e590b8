// The preferences of a Mozilla profile, read from its preference file in the order of its lines. Text is
// narrow, as the file has it; nothing is unescaped.
#pragma once

#include <windows.h>

#include <list>
#include <memory>
#include <string>

// One preference: the name without its quotes, and the text between the value's quotes or the raw value.
struct PrefEntry
{
    std::string name;
    std::string value;
};

class CProfile
{
public:
    CProfile() = default;
    virtual ~CProfile() = default;
    CProfile(const CProfile&) = delete;
    CProfile& operator=(const CProfile&) = delete;

    // Appends the preferences of the file at path (ANSI code page). 0 only when it cannot be opened.
    BOOL Load(const char* path);

    // Appends the preferences of a file's text, which this call overwrites in part. The first block
    // comment is blanked; a last line without a line feed is not read.
    void Parse(std::string& text);

    // The value of the first entry with that name, whatever its case; null when there is none. Owned by
    // this object.
    const char* GetPref(const char* name) const;

    // One line, [line, lineEnd), of a NUL-terminated text; null when it is no preference.
    static std::unique_ptr<PrefEntry> ParseLine(const char* line, const char* lineEnd);

private:
    std::list<std::unique_ptr<PrefEntry>> m_entries;
};
