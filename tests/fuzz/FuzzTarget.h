// What random input is fed to. Each target turns the input into arguments of one part of the product, calls
// it, and compares the result with that of a model of its own. Blocks lie against guard pages, and every
// array block that a call leaves behind is found.
#pragma once

#include <string>
#include <string_view>

struct CFuzzTarget
{
    const char* pszName;
    size_t cbLongest;  // of its inputs
    // Empty when all is well; otherwise what was expected, and what came.
    std::string (*pfnCheck)(std::string_view input);
};

// The product looks for the trace library once in its life. From now on records are made, and go nowhere
// beside CheckRecord.
void LoadTraceLibrary();

std::string CheckEncoding(std::string_view input);
std::string CheckFormat(std::string_view input);
std::string CheckPreferences(std::string_view input);
std::string CheckPreferenceLine(std::string_view input);
std::string CheckProfilesIni(std::string_view input);
std::string CheckProxyList(std::string_view input);
std::string CheckRecord(std::string_view input);
std::string CheckRedirect(std::string_view input);
std::string CheckString(std::string_view input);
std::string CheckUrl(std::string_view input);

inline constexpr CFuzzTarget kFuzzTargets[] = {
    {"encoding", 120, CheckEncoding},
    {"format", 80, CheckFormat},
    {"preferences", 60, CheckPreferences},
    {"preference_line", 60, CheckPreferenceLine},
    {"profiles_ini", 60, CheckProfilesIni},
    {"proxy_list", 100, CheckProxyList},
    {"record", 40, CheckRecord},
    {"redirect", 30, CheckRedirect},
    {"string", 120, CheckString},
    {"url", 30, CheckUrl},
};

template <typename Char>
std::string Shown(std::basic_string_view<Char> text)
{
    constexpr char kDigits[] = "0123456789abcdef";
    std::string shown = "'";
    for (const Char ch : text)
    {
        const unsigned code = static_cast<unsigned>(ch) & (sizeof(Char) == 1 ? 0xFF : 0xFFFF);
        if (code >= 0x20 && code < 0x7F)
        {
            shown += static_cast<char>(code);
            continue;
        }
        shown += '<';
        for (int shift = 4 * (2 * static_cast<int>(sizeof(Char)) - 1); shift >= 0; shift -= 4)
        {
            shown += kDigits[code >> shift & 0xF];
        }
        shown += '>';
    }
    return shown + "'";
}

template <typename Char>
std::string Shown(const std::basic_string<Char>& text)
{
    return Shown(std::basic_string_view<Char>(text));
}

inline std::string Difference(const std::string& what, const std::string& expected, const std::string& got)
{
    return expected == got ? std::string() : what + ": expected " + expected + ", got " + got;
}
