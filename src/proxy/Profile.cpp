#include "proxy/Profile.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <new>

#include "proxy/MozillaFile.h"

namespace
{

constexpr char kKeyword[] = "user_pref";
constexpr size_t kKeywordLength = sizeof(kKeyword) - 1;

const char* Skip(const char* p, char ch)
{
    while (*p == ch)
    {
        ++p;
    }
    return p;
}

// Skips blanks, then every ch, then blanks.
const char* SkipAround(const char* p, char ch)
{
    return Skip(Skip(Skip(p, ' '), ch), ' ');
}

// Intended: only the first one; a second comment is read like any other lines.
void BlankFirstComment(std::string& text)
{
    char* const begin = std::strstr(text.data(), "/*");
    char* const end = begin != nullptr ? std::strstr(begin, "*/") : nullptr;
    if (end != nullptr)
    {
        std::fill(begin, end + 2, '\0');
    }
}

std::string ParseValue(const char* p, const char* lineEnd)
{
    if (p >= lineEnd)
    {
        return std::string();
    }
    constexpr char kClose[] = {')', ';'};
    // Its semicolon may stand at the line's end.
    const char* const close = std::search(p, lineEnd + 1, std::begin(kClose), std::end(kClose));
    if (close == lineEnd + 1)
    {
        return std::string();
    }
    p = Skip(p, ' ');
    if (*p == '"')
    {
        ++p;
    }
    const char* const end = close[-1] == '"' ? close - 1 : close;
    return p < end ? std::string(p, end) : std::string();
}

}  // namespace

BOOL CProfile::Load(const char* path)
{
    const CMozillaFile file(path, "rb");
    if (!file)
    {
        return FALSE;
    }
    try
    {
        std::string text(file.Size(), '\0');
        text.resize(file.Read(text.data(), text.size()));
        Parse(text);
    }
    catch (const std::bad_alloc&)
    {
        // What has been read stays; the rest counts as absent.
    }
    return TRUE;
}

void CProfile::Parse(std::string& text)
{
    BlankFirstComment(text);
    const char* const textEnd = text.data() + text.size();
    const char* line = text.c_str();
    const char* lineEnd = std::strchr(line, '\n');
    while (lineEnd != nullptr && lineEnd > line)
    {
        if (std::unique_ptr<PrefEntry> entry = ParseLine(line, lineEnd))
        {
            m_entries.push_back(std::move(entry));
        }
        line = std::find_if(lineEnd + 1, textEnd,
                            [](char ch) { return ch != '\n' && ch != '\0' && ch != '\t'; });
        lineEnd = std::strchr(line, '\n');
    }
}

const char* CProfile::GetPref(const char* name) const
{
    const size_t length = std::strlen(name);
    for (const std::unique_ptr<PrefEntry>& entry : m_entries)
    {
        if (entry->name.size() == length && _strnicmp(entry->name.c_str(), name, length) == 0)
        {
            return entry->value.c_str();
        }
    }
    return nullptr;
}

std::unique_ptr<PrefEntry> CProfile::ParseLine(const char* line, const char* lineEnd)
{
    if (line == nullptr || lineEnd == nullptr || std::strncmp(line, kKeyword, kKeywordLength) != 0)
    {
        return nullptr;
    }
    const char* p = SkipAround(line + kKeywordLength, '(');
    if (p >= lineEnd)
    {
        return nullptr;
    }
    const char* const nameBegin = SkipAround(p, '"');
    if (nameBegin >= lineEnd)
    {
        return nullptr;
    }
    // The blanks before the closing quote may reach beyond the line's end.
    const char* nameEnd =
        Skip(std::find_if(nameBegin, lineEnd, [](char ch) { return ch == '"' || ch == '\0'; }), ' ');
    if (*nameEnd != '"')
    {
        return nullptr;
    }
    while (nameEnd > nameBegin && nameEnd[-1] == ' ')
    {
        --nameEnd;
    }
    if (nameEnd >= lineEnd)
    {
        return nullptr;
    }
    auto entry = std::make_unique<PrefEntry>();
    entry->name.assign(nameBegin, nameEnd);
    // Intended: one on from the name's end, which is not its quote when blanks were dropped.
    entry->value = ParseValue(SkipAround(nameEnd + 1, ','), lineEnd);
    return entry;
}
