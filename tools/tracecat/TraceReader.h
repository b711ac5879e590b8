// Reads a trace file, once or as it grows. The library copies the file to FILE.1 when it has become large,
// the older ones to FILE.2 and so on, and empties it: what was added before that is taken from there.
#pragma once

#include <cstdint>
#include <string>

class CTraceReader
{
public:
    // Opens nothing yet.
    explicit CTraceReader(std::wstring path);

    // Appends to bytes what was added since the last call; at the first call all that is there. False when
    // there is no such file now, or it cannot be read.
    bool Read(std::string& bytes);

    // Appends what is in the files set aside, the oldest first. Before the first Read.
    void ReadOld(std::string& bytes) const;

private:
    std::wstring Aside(int number) const;
    bool Continues(const std::wstring& path) const;

    const std::wstring m_strPath;
    std::uint64_t m_nRead = 0;  // bytes of the file
    std::string m_strMark;      // the last of those, by which the file is known again
};
