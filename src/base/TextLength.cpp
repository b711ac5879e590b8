#include "base/TextLength.h"

#include <cstdint>

namespace
{

constexpr size_t kCharacters = 32;
constexpr std::uintptr_t kStrideBytes = kCharacters * sizeof(wchar_t);
constexpr unsigned kHighestBit = 0x8000;

// The highest bit is set when one of the characters is a terminator.
unsigned short FindTerminator(const wchar_t* stride)
{
    unsigned short bits = 0;
    for (size_t i = 0; i < kCharacters; ++i)
    {
        bits = static_cast<unsigned short>(bits | ((stride[i] - 1) & ~stride[i]));
    }
    return bits;
}

}  // namespace

// In strides, which the compiler makes a few instructions of; some runtimes take each character by itself.
// What is read beyond the terminator stands in the same stride as it, and since these are aligned, in the
// same page.
size_t TextLength(const wchar_t* text)
{
    const wchar_t* at = text;
    while (reinterpret_cast<std::uintptr_t>(at) % kStrideBytes != 0)
    {
        if (*at == L'\0')
        {
            return static_cast<size_t>(at - text);
        }
        ++at;
    }
    while ((FindTerminator(at) & kHighestBit) == 0)
    {
        at += kCharacters;
    }
    while (*at != L'\0')
    {
        ++at;
    }
    return static_cast<size_t>(at - text);
}
