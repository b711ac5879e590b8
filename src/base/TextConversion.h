// Text between UTF-16 and the platform's narrow encodings: the system's ANSI code page (CP_ACP) and UTF-8
// (CP_UTF8). What has no counterpart becomes the encoding's default character. Nothing throws.
#pragma once

#include <windows.h>

#include <memory>

// A new copy of text, with its terminator. Null when text is null or its size cannot be had, and without
// memory; an empty text when only the conversion itself fails. *pcb, when asked for, is the size of the copy
// in bytes, terminator included: 0 for a text that cannot be converted, what it would take when there is no
// memory.
std::unique_ptr<char[]> NarrowCopy(UINT codePage, const wchar_t* text, int* pcb = nullptr);

// The same from text (not null), of which the first cb bytes are taken, or all up to the terminator for a cb
// of -1. *pcch is the number of characters, the terminator included only for a cb of -1.
std::unique_ptr<wchar_t[]> WideCopy(UINT codePage, const char* text, int cb, int* pcch = nullptr);

// The same from text (not null) that ends within its first cb bytes or right behind them, in one pass, at the
// price of a block with room for a character a byte.
std::unique_ptr<wchar_t[]> WideCopyAtOnce(UINT codePage, const char* text, DWORD cb);
