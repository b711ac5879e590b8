// Bodies that are not what was announced, or break off.
#include "system/hostile/HostileRow.h"

std::vector<HostileRow> BodyRows()
{
    return {
        {"NotUtf8", Sends(MakeAnswer(200, "a\xFF\xFEz")), Done(L"a\xFFFD\xFFFDz")},
        {"WithAZero", Sends(MakeAnswer(200, std::string("before\0after", 12))), Done(L"before")},
        {"GzipThatIsNone", Sends(MakeAnswer(200, "plain", "Content-Encoding: gzip\r\n")), Done(L"plain")},
        {"GzipThatBeginsWell",
         Sends(MakeAnswer(200, "\x1F\x8B\x08 and no more", "Content-Encoding: gzip\r\n")),
         Done(L"\x1F\xFFFD\x08 and no more")},
        // The text is UTF-8 whatever the server says.
        {"AnotherCharset",
         Sends(MakeAnswer(200, "\xC3\xA4", "Content-Type: text/html; charset=iso-8859-1\r\n")),
         Done(L"\x00E4")},
        {"CutShortInTheFirstPiece", Sends("HTTP/1.1 200 OK\r\nContent-Length: 100000\r\n\r\nonly this"),
         Done(L"only this")},
        {"CutShortAtAWholePiece",
         Sends("HTTP/1.1 200 OK\r\nContent-Length: 100000\r\n\r\n" + std::string(32768, 'x')),
         Done(std::wstring(32768, L'x'))},
        // Under Wine a reset that comes before the platform waits for what is lost looks like a close.
        {"ResetAfterTheHead",
         [](HostileTurn& turn)
         {
             turn.Send("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\n");
             turn.connection.Pause(300);
             turn.connection.Reset();
         },
         kNotKnown, Done()},
        // The read that the reset interrupts is lost; the ones before it count.
        {"ResetInside",
         [](HostileTurn& turn)
         {
             turn.Send("HTTP/1.1 200 OK\r\nContent-Length: 100000\r\n\r\n" + std::string(16384 + 100, 'x'));
             turn.connection.Pause(300);
             turn.connection.Reset();
         },
         Done(std::wstring(16384, L'x'))},
        {"ResetInsideChunks",
         [](HostileTurn& turn)
         {
             turn.Send("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nfirst\r\n8\r\nsec");
             turn.connection.Pause(300);
             turn.connection.Reset();
         },
         kNotKnown, Done()},
        {"ResetBeforeTheHead",
         [](HostileTurn& turn)
         {
             turn.connection.Pause(300);
             turn.connection.Reset();
         },
         Fails()},
        {"ResetInsideTheHead",
         [](HostileTurn& turn)
         {
             turn.Send("HTTP/1.1 200 OK\r\nContent-Le");
             turn.connection.Pause(300);
             turn.connection.Reset();
         },
         kNotKnown, Done()},
    };
}
