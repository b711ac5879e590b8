// The length of long texts, which is counted at every copy since no text keeps its own.
#pragma once

#include <cstddef>

// How many characters stand before the terminator of text, which is not null.
size_t TextLength(const wchar_t* text);
