// Text for people, as UTF-8 whatever the code page and the locale of the caller.
#pragma once

#include <string>
#include <string_view>

std::string ToUtf8(std::wstring_view text);

// To the standard output.
void Print(std::wstring_view text);
// To the standard error stream, as a line.
void PrintError(std::wstring_view text);
