// What the program has found out, for the report: a file of lines with fields between tabs.
//   sample WORK CLIENT ROUND MS         one exchange, or one of many at once for all
//   turn   WORK CLIENT ROUND MS COUNT   the processor time of a turn of so many samples
//   memory WORK CLIENT KB               by which one exchange of a fresh object grew it
//   left   WORK CLIENT THREADS HANDLES  more of them after that exchange than before
//   none   WORK CLIENT REASON           the client cannot do the work
//   lost   CLIENT                       the end of an exchange was not seen, and the exchange repeated
//   figure NAME VALUE                   one value of something measured apart
#pragma once

#include <cstdio>
#include <initializer_list>
#include <string>

class CRecord
{
public:
    explicit CRecord(const std::string& path) : m_pFile(std::fopen(path.c_str(), "wb")) {}
    ~CRecord() { std::fclose(m_pFile); }
    CRecord(const CRecord&) = delete;
    CRecord& operator=(const CRecord&) = delete;

    bool IsOpen() const { return m_pFile != nullptr; }

    void Add(std::initializer_list<std::string> names, std::initializer_list<double> numbers = {})
    {
        const char* pszBetween = "";
        for (const std::string& name : names)
        {
            std::fprintf(m_pFile, "%s%s", pszBetween, name.c_str());
            pszBetween = "\t";
        }
        for (const double number : numbers)
        {
            std::fprintf(m_pFile, "\t%.6g", number);
        }
        std::fputc('\n', m_pFile);
    }

private:
    std::FILE* const m_pFile;
};
