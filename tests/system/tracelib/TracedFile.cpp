#include "system/tracelib/TracedFile.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>

namespace
{

constexpr size_t kPiece = 2047;

void AddLines(const std::filesystem::path& path, std::vector<TracedLine>& lines)
{
    static const std::regex kLine(R"((\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{6}Z) (\d+) (\d+) (\d+) )",
                                  std::regex::optimize);
    std::ifstream stream(path, std::ios::binary);
    const std::string content(std::istreambuf_iterator<char>(stream), {});
    size_t begin = 0;
    for (size_t end = content.find('\n'); end != std::string::npos; end = content.find('\n', begin))
    {
        const std::string line = content.substr(begin, end - begin);
        std::smatch match;
        const std::string head = line.substr(0, 80);
        if (std::regex_search(head, match, kLine, std::regex_constants::match_continuous))
        {
            lines.push_back(
                {match[1], match[2], match[3], match[4], line.substr(static_cast<size_t>(match.length(0)))});
        }
        else
        {
            ADD_FAILURE() << "a torn line: " << head;
        }
        begin = end + 1;
    }
    EXPECT_EQ(content.substr(begin), "") << "a line without its end";
}

}  // namespace

std::wstring BesideThisProgram(const std::wstring& name)
{
    wchar_t szPath[MAX_PATH] = {};
    GetModuleFileNameW(nullptr, szPath, MAX_PATH);
    const std::wstring path = szPath;
    return path.substr(0, path.find_last_of(L'\\') + 1) + name;
}

std::wstring BuiltTraceLibrary()
{
    return BesideThisProgram(L"..\\tracelib\\qnztraceX64.dll");
}

CLoadedTraceLibrary::CLoadedTraceLibrary(const std::wstring& path)
    : m_hModule(LoadLibraryW(path.c_str())),
      m_write(reinterpret_cast<TraceProc>(reinterpret_cast<void*>(GetProcAddress(m_hModule, "QNZTRACERAWA"))))
{
    if (m_write == nullptr)
    {
        ADD_FAILURE() << "there is no trace library " << std::filesystem::path(path);
        std::abort();
    }
}

CLoadedTraceLibrary::~CLoadedTraceLibrary()
{
    if (m_hModule != nullptr)
    {
        Free();
    }
}

void CLoadedTraceLibrary::Piece(const std::string& piece, unsigned long level) const
{
    m_write(level, 0, 0, piece.c_str());
}

void CLoadedTraceLibrary::Write(const std::string& text, unsigned long level) const
{
    const std::string record = " " + text + ",\n";
    for (size_t begin = 0; begin < record.size(); begin += kPiece)
    {
        Piece(record.substr(begin, kPiece), level);
    }
}

bool CLoadedTraceLibrary::Free()
{
    wchar_t szPath[MAX_PATH] = {};
    GetModuleFileNameW(m_hModule, szPath, MAX_PATH);
    FreeLibrary(m_hModule);
    m_hModule = nullptr;
    return GetModuleHandleW(szPath) == nullptr;
}

std::vector<TracedLine> CTracedFile::Lines() const
{
    std::vector<TracedLine> lines;
    for (int number = 99; number > 0; --number)
    {
        AddLines(Path() + L"." + std::to_wstring(number), lines);
    }
    AddLines(Path(), lines);
    return lines;
}

std::vector<std::string> CTracedFile::Texts() const
{
    std::vector<std::string> texts;
    for (const TracedLine& line : Lines())
    {
        if (line.strLevel != "0")
        {
            texts.push_back(line.strText);
        }
    }
    return texts;
}

std::vector<std::string> CTracedFile::Notes() const
{
    std::vector<std::string> texts;
    for (const TracedLine& line : Lines())
    {
        if (line.strLevel == "0")
        {
            texts.push_back(line.strText);
        }
    }
    return texts;
}
