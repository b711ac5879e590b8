// The preference reader, beside a model that goes by positions in a copy of the text with two zero bytes
// behind it.
#include <cctype>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "fuzz/Choices.h"
#include "fuzz/FuzzTarget.h"
#include "proxy/Profile.h"

namespace
{

constexpr std::string_view kPieces[] = {
    "user_pref",
    "user_pref(\"",
    "user_pref(\"a\", ",
    "(",
    ")",
    ");",
    ";",
    "\"",
    "\"\"",
    "\", \"",
    "\");\n",
    ");\n",
    "\n",
    "\n\n",
    "\r\n",
    "\t",
    " ",
    "  ",
    ",",
    "a",
    "A",
    "b",
    "ab",
    "1",
    "x.y",
    "/*",
    "*/",
    "/*/",
    "//",
    "\\",
    "\xE9",
    std::string_view("\0", 1),
    std::string_view("\0\n", 2),
    "user_pref(\"b\",\"1\");\n",
    "user_pref ( \" a b \" , 2 );\n",
    "USER_PREF(\"a\", 1);\n",
};
constexpr std::string_view kNames[] = {"a",   "A", "b", "ab", "aB", "x.y", "X.Y",
                                       "a b", "",  " ", "1",  "(",  "a\"", "\xE9"};

constexpr size_t kNone = std::string::npos;

using Entry = std::pair<std::string, std::string>;

// A text as the C library's searches see it: they end at a zero byte.
class CModel
{
public:
    explicit CModel(const std::string& text) : m_text(text + std::string(2, '\0')), m_size(text.size()) {}

    std::vector<Entry> Read()
    {
        BlankComment();
        std::vector<Entry> entries;
        size_t line = 0;
        size_t lineEnd = Find("\n", 0);
        while (lineEnd != kNone && lineEnd > line)
        {
            Entry entry;
            if (ReadLine(line, lineEnd, entry))
            {
                entries.push_back(entry);
            }
            line = lineEnd + 1;
            while (line < m_size && std::memchr("\n\0\t", m_text[line], 3) != nullptr)
            {
                ++line;
            }
            lineEnd = Find("\n", line);
        }
        return entries;
    }

    bool ReadLine(size_t line, size_t lineEnd, Entry& entry) const
    {
        if (m_text.compare(line, 9, "user_pref") != 0)
        {
            return false;
        }
        size_t at = PastAll(PastAll(PastAll(line + 9, ' '), '('), ' ');
        if (at >= lineEnd)
        {
            return false;
        }
        at = PastAll(PastAll(PastAll(at, ' '), '"'), ' ');
        const size_t quote = at < lineEnd ? Find("\"", at) : kNone;
        if (quote == kNone)
        {
            return false;
        }
        size_t end = quote;
        while (end > at && m_text[end - 1] == ' ')
        {
            --end;
        }
        if (end >= lineEnd)
        {
            return false;
        }
        entry = {m_text.substr(at, end - at),
                 ReadValue(PastAll(PastAll(PastAll(end + 1, ' '), ','), ' '), lineEnd)};
        return true;
    }

private:
    size_t Find(const char* what, size_t from) const
    {
        const size_t stop = m_text.find('\0', from);
        const size_t found = m_text.find(what, from);
        return found < stop ? found : kNone;
    }

    size_t PastAll(size_t at, char ch) const { return m_text.find_first_not_of(ch, at); }

    void BlankComment()
    {
        const size_t begin = Find("/*", 0);
        const size_t end = begin != kNone ? Find("*/", begin) : kNone;
        if (end != kNone)
        {
            m_text.replace(begin, end + 2 - begin, end + 2 - begin, '\0');
        }
    }

    std::string ReadValue(size_t from, size_t lineEnd) const
    {
        const size_t close = Find(");", from);
        if (close == kNone || close >= lineEnd)
        {
            return "";
        }
        size_t begin = PastAll(from, ' ');
        begin += m_text[begin] == '"' ? 1u : 0u;
        const size_t end = close - (m_text[close - 1] == '"' ? 1u : 0u);
        return end > begin ? m_text.substr(begin, end - begin) : "";
    }

    std::string m_text;
    const size_t m_size;
};

std::string Lower(std::string text)
{
    for (char& ch : text)
    {
        ch = ch >= 'A' && ch <= 'Z' ? static_cast<char>(ch - 'A' + 'a') : ch;
    }
    return text;
}

std::string ShownValue(const char* value)
{
    return value != nullptr ? Shown(std::string_view(value)) : "none";
}

std::string Expected(const std::vector<Entry>& entries, const std::string& name)
{
    for (const Entry& entry : entries)
    {
        if (Lower(entry.first) == Lower(name))
        {
            return ShownValue(entry.second.c_str());
        }
    }
    return "none";
}

std::string ShownEntry(const std::string& name, const std::string& value)
{
    return Shown(name) + " = " + Shown(value);
}

}  // namespace

std::string CheckPreferences(std::string_view input)
{
    CChoices choices(input);
    const std::string text = choices.Pieces(kPieces, 40);
    const std::vector<Entry> entries = CModel(text).Read();
    CProfile profile;
    std::string copy = text;
    profile.Parse(copy);

    std::vector<std::string> names(std::begin(kNames), std::end(kNames));
    for (const Entry& entry : entries)
    {
        names.push_back(entry.first);
    }
    for (const std::string& name : names)
    {
        const std::string expected = name.find('\0') == kNone ? Expected(entries, name) : "none";
        const std::string got = ShownValue(profile.GetPref(name.c_str()));
        if (expected != got)
        {
            return Difference("the preference " + Shown(name) + " of " + Shown(text), expected, got);
        }
    }
    return "";
}

std::string CheckPreferenceLine(std::string_view input)
{
    CChoices choices(input);
    std::string text = choices.OneIn(8) ? "" : "user_pref";
    text += choices.Pieces(kPieces, 12);
    std::erase(text, '\0');
    const size_t lineEnd = static_cast<size_t>(choices.Between(0, static_cast<int>(text.size())));
    // The terminator is the block's last byte.
    const std::unique_ptr<char[]> block(new char[text.size() + 1]);
    std::memcpy(block.get(), text.c_str(), text.size() + 1);
    const std::unique_ptr<PrefEntry> entry = CProfile::ParseLine(block.get(), block.get() + lineEnd);
    Entry expected;
    const bool bExpected = CModel(text).ReadLine(0, lineEnd, expected);
    return Difference(Shown(text) + " up to " + std::to_string(lineEnd),
                      bExpected ? ShownEntry(expected.first, expected.second) : "no preference",
                      entry != nullptr ? ShownEntry(entry->name, entry->value) : "no preference");
}
