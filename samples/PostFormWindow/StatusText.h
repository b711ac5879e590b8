// The statuses in words.
#pragma once

#include <string>

const wchar_t* NameOf(unsigned long status);

// What the status means, and what a person can do about it.
const wchar_t* MeaningOf(unsigned long status);

// Where the host knows more than the status says.
inline constexpr wchar_t kDoneInFileText[] = L"The answer is complete, in the target file.";
inline constexpr wchar_t kStoppingText[] = L"Waiting for the exchange to end.";
inline constexpr wchar_t kStoppedText[] =
    L"The exchange has been given up. The server may have got the form nevertheless.";

// Seconds with tenths: "2.3 s".
std::wstring FormatElapsed(unsigned long long milliseconds);

// "1.25 MB", as the platform writes it.
std::wstring FormatSize(unsigned long long size);

// Line ends as a text field wants them, whichever they are.
std::wstring WithFieldLineEnds(const std::wstring& text);
