// The lines that the trace library writes, and the records that they are made of. A line is UTF-8 and ends
// with a line feed:
//
//   2026-11-21T22:09:18.123456Z 2 4711 4720 --> CHttpRequest::SendRequest
//   when (UTC)                  level process thread text
//
// Level 0 is the library's own: notes about the trace itself.
#pragma once

#include <windows.h>

#include <string>
#include <string_view>

constexpr unsigned long kLevelNote = 0;

struct LineHead
{
    ULONGLONG time;  // as FILETIME counts it, 100 ns each
    unsigned long level;
    DWORD dwProcess;
    DWORD dwThread;
};

// The time of this moment, as exact as the system has it.
ULONGLONG TimeNow();

// True when the piece of a record that a trace call has brought is the record's last. A record comes in
// pieces of 2047 bytes and a shorter last one; one of full length is the last when it ends as records do. Of
// a long text that happens to have such an ending at such a place the rest counts as a record of its own.
bool IsLastPiece(std::string_view piece);

// The text of a record as it stands in a line: UTF-8 instead of the ANSI code page, without the blank that an
// empty message leaves in front and without blanks and line feeds at the end, control characters replaced by
// their pictures (U+2400 and behind), so that no text can break a line or forge one.
std::string LineText(std::string_view record);

// The whole line. The text is one that LineText has made, or plain ASCII.
std::string MakeLine(const LineHead& head, std::string_view text);

std::string ToUtf8(std::wstring_view text);
std::wstring ToWide(UINT codePage, std::string_view text);
