// The choices that a fuzz target makes, taken from its input one after another, so that an input, whatever
// bytes it has, is a test case. Once the input is used up every choice is the least.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

class CChoices
{
public:
    explicit CChoices(std::string_view input) : m_input(input) {}

    bool AtEnd() const { return m_at >= m_input.size(); }

    // Both ends included.
    int Between(int least, int greatest)
    {
        const std::uint64_t count = static_cast<std::uint64_t>(std::int64_t{greatest} - least) + 1;
        std::uint64_t number = 0;
        for (std::uint64_t reach = 1; reach < count; reach <<= 8)
        {
            number = number << 8 | NextByte();
        }
        return static_cast<int>(least + static_cast<std::int64_t>(number % count));
    }

    bool OneIn(int count) { return Between(1, count) == count; }

    template <typename Char, size_t count>
    Char OneOf(const Char (&characters)[count])
    {
        return characters[Between(0, static_cast<int>(count) - 2)];
    }

    template <typename Char, size_t count>
    std::basic_string<Char> Text(const Char (&alphabet)[count], int greatestLength)
    {
        std::basic_string<Char> text(static_cast<size_t>(Between(0, greatestLength)), Char{});
        for (Char& ch : text)
        {
            ch = OneOf(alphabet);
        }
        return text;
    }

    // Some of the pieces, in any order.
    template <typename Char, size_t count>
    std::basic_string<Char> Pieces(const std::basic_string_view<Char> (&pieces)[count], int greatestCount)
    {
        std::basic_string<Char> text;
        for (int left = Between(0, greatestCount); left > 0; --left)
        {
            text += pieces[Between(0, static_cast<int>(count) - 1)];
        }
        return text;
    }

private:
    std::uint8_t NextByte() { return AtEnd() ? std::uint8_t{0} : static_cast<std::uint8_t>(m_input[m_at++]); }

    std::string_view m_input;
    size_t m_at = 0;
};
