// Arguments of recorded calls as text: 'text' for strings, in UTF-8, or null.
#pragma once

#include <windows.h>

#include <initializer_list>
#include <string>

std::string ToUtf8(const wchar_t* text);
std::string Quoted(const wchar_t* text);
std::string Hex(unsigned long value);

// "name(a, b, c)".
std::string CallText(const char* name, std::initializer_list<std::string> arguments);

inline std::string NullOr(const void* pointer, const char* name)
{
    return pointer == nullptr ? "null" : name;
}
