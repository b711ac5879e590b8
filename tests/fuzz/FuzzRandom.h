// The inputs of one run: the number of an input and the run's seed make all of it.
#pragma once

#include <cstdint>
#include <string>

inline std::string RandomInput(std::uint64_t seed, std::uint64_t number, size_t cbLongest)
{
    std::uint64_t state = seed * 0x9E3779B97F4A7C15 + number;
    const auto pfnNext = [&state]
    {
        state += 0x9E3779B97F4A7C15;
        std::uint64_t bits = state;
        bits = (bits ^ bits >> 30) * 0xBF58476D1CE4E5B9;
        bits = (bits ^ bits >> 27) * 0x94D049BB133111EB;
        return bits ^ bits >> 31;
    };
    std::string input(pfnNext() % (cbLongest + 1), '\0');
    for (size_t at = 0; at < input.size(); at += sizeof(std::uint64_t))
    {
        std::uint64_t bits = pfnNext();
        for (size_t index = at; index < input.size() && index < at + sizeof(bits); ++index, bits >>= 8)
        {
            input[index] = static_cast<char>(bits);
        }
    }
    return input;
}
