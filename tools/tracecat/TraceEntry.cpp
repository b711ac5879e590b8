#include "tracecat/TraceEntry.h"

#include <charconv>
#include <cstdio>
#include <system_error>

namespace
{

constexpr std::int64_t kMicrosecondsPerSecond = 1000000;
constexpr std::int64_t kSecondsPerDay = 86400;

// Takes a number of that many digits and the character behind it, if one is named.
class CScanner
{
public:
    explicit CScanner(std::string_view text) : m_text(text) {}

    bool Number(size_t digits, char next, std::int64_t& number)
    {
        const char* const begin = m_text.data();
        const size_t length = digits != 0 ? digits : m_text.find(next);
        if (length == 0 || length >= m_text.size() || m_text[length] != next || *begin == '-')
        {
            return false;
        }
        const std::from_chars_result result = std::from_chars(begin, begin + length, number);
        m_text.remove_prefix(length + 1);
        return result.ec == std::errc() && result.ptr == begin + length;
    }

    std::string_view Rest() const { return m_text; }

private:
    std::string_view m_text;
};

// Days since some day, for dates of the usual calendar.
std::int64_t DayNumber(std::int64_t year, std::int64_t month, std::int64_t day)
{
    // Years that begin in March end with the day that some have more.
    year -= month <= 2 ? 1 : 0;
    month += month <= 2 ? 9 : -3;
    return 365 * year + year / 4 - year / 100 + year / 400 + (153 * month + 2) / 5 + day;
}

int HexValue(char digit)
{
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    const size_t value = kDigits.find(digit >= 'a' ? static_cast<char>(digit - 'a' + 'A') : digit);
    return value == std::string_view::npos ? -1 : static_cast<int>(value);
}

// Characters that steer a terminal are not handed to one.
void AppendByte(std::string& text, unsigned char byte)
{
    constexpr char kPictures[] = "\xE2\x90";
    constexpr unsigned char kDelete = 0x7F;
    if (byte < 0x20 || byte == kDelete)
    {
        text.append(kPictures).append(1, static_cast<char>(0x80 + (byte == kDelete ? 0x21 : byte)));
    }
    else if (byte >= 0x80 && byte < 0xA0 && text.ends_with('\xC2'))
    {
        text.pop_back();
        text += "\xEF\xBF\xBD";
    }
    else
    {
        text += static_cast<char>(byte);
    }
}

}  // namespace

std::optional<TraceEntry> ParseEntry(std::string_view line)
{
    constexpr size_t kDateLength = 10;
    constexpr size_t kTimeLength = 15;
    std::int64_t year = 0;
    std::int64_t month = 0;
    std::int64_t day = 0;
    std::int64_t hour = 0;
    std::int64_t minute = 0;
    std::int64_t second = 0;
    std::int64_t fraction = 0;
    std::int64_t level = 0;
    std::int64_t process = 0;
    std::int64_t thread = 0;
    CScanner scanner(line);
    if (!scanner.Number(4, '-', year) || !scanner.Number(2, '-', month) || !scanner.Number(2, 'T', day) ||
        !scanner.Number(2, ':', hour) || !scanner.Number(2, ':', minute) || !scanner.Number(2, '.', second) ||
        !scanner.Number(6, 'Z', fraction) || !scanner.Rest().starts_with(' '))
    {
        return std::nullopt;
    }
    CScanner numbers(scanner.Rest().substr(1));
    if (!numbers.Number(0, ' ', level) || !numbers.Number(0, ' ', process) || !numbers.Number(0, ' ', thread))
    {
        return std::nullopt;
    }
    const std::int64_t seconds =
        DayNumber(year, month, day) * kSecondsPerDay + hour * 3600 + minute * 60 + second;
    return TraceEntry{std::string(line.substr(0, kDateLength)),
                      std::string(line.substr(kDateLength + 1, kTimeLength)),
                      seconds * kMicrosecondsPerSecond + fraction,
                      static_cast<unsigned long>(level),
                      static_cast<unsigned long>(process),
                      static_cast<unsigned long>(thread),
                      std::string(numbers.Rest())};
}

std::string FormatDuration(std::int64_t nMicroseconds)
{
    const bool bSeconds = nMicroseconds >= kMicrosecondsPerSecond;
    char szText[48] = {};
    std::snprintf(szText, sizeof(szText), "%.3f %s",
                  static_cast<double>(nMicroseconds) / (bSeconds ? 1e6 : 1e3), bSeconds ? "s" : "ms");
    return szText;
}

std::string DecodePercent(std::string_view text)
{
    std::string decoded;
    for (size_t index = 0; index < text.size(); ++index)
    {
        const int high = text[index] == '%' && index + 2 < text.size() ? HexValue(text[index + 1]) : -1;
        const int low = high >= 0 ? HexValue(text[index + 2]) : -1;
        if (low < 0)
        {
            decoded += text[index];
            continue;
        }
        AppendByte(decoded, static_cast<unsigned char>(high * 16 + low));
        index += 2;
    }
    return decoded;
}

std::string Shortened(std::string_view text, size_t length)
{
    constexpr std::string_view kDots = "...";
    if (text.size() <= length)
    {
        return std::string(text);
    }
    length -= kDots.size();
    // Not within a character: those bytes begin with the bits 10.
    while (length > 0 && (static_cast<unsigned char>(text[length]) & 0xC0) == 0x80)
    {
        --length;
    }
    return std::string(text.substr(0, length)).append(kDots);
}
