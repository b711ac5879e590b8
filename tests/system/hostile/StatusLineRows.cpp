// The first line of an answer, and answers that have none.
#include "system/hostile/HostileRow.h"

namespace
{

HostileServe Line(std::string_view line)
{
    return Sends(std::string(line).append("\r\nContent-Length: 2\r\n\r\nok"));
}

// Wine takes a first line that is no status line for the whole head, with status 200, and what came with it
// for the body.
const HostileExpectation kRestOfTheHead = Done(L"Content-Length: 2\r\n\r\nok");

}  // namespace

std::vector<HostileRow> StatusLineRows()
{
    using namespace std::string_view_literals;
    return {
        {"NoReasonPhrase", Line("HTTP/1.1 200"), kNotKnown, Done(L"ok")},
        {"NoCode", Line("HTTP/1.1"), kNotKnown, kRestOfTheHead},
        {"AReasonOf100Kilobytes", Line("HTTP/1.1 200 " + std::string(100 * 1024, 'r')), kNotKnown,
         Done(L"ok")},
        {"AReasonThatIsNotAscii", Line("HTTP/1.1 200 \xC3\xA4\xFF\x80"), Done(L"ok")},
        {"ANulBeforeTheCode", Line("HTTP/1.1 \0 200 OK"sv), kNotKnown, Done(L"ok")},
        {"ANulInTheCode", Line("HTTP/1.1 2\0000 OK"sv), kNotKnown, Done(L"ok")},
        {"Http10", Line("HTTP/1.0 200 OK"), Done(L"ok")},
        {"Http10WithABodyUntilTheClose", Sends("HTTP/1.0 200 OK\r\n\r\nall of it"), Done(L"all of it")},
        {"Http09", Line("HTTP/0.9 200 OK"), kNotKnown, Done(L"ok")},
        {"Http20", Line("HTTP/2.0 200 OK"), kNotKnown, Done(L"ok")},
        {"LowerCase", Line("http/1.1 200 ok"), kNotKnown, kRestOfTheHead},
        {"Icy", Line("ICY 200 OK"), kNotKnown, kRestOfTheHead},
        {"TwoBlanks", Line("HTTP/1.1  200  OK"), kNotKnown, Done(L"ok")},
        {"TabsForBlanks", Line("HTTP/1.1\t200\tOK"), kNotKnown, kRestOfTheHead},
        {"NoBlankBeforeTheCode", Line("HTTP/1.1200 OK"), kNotKnown, Done(L"ok")},
        {"ABlankBeforeTheLine", Line(" HTTP/1.1 200 OK"), kNotKnown, kRestOfTheHead},
        {"AnEmptyLineBefore", Line("\r\nHTTP/1.1 200 OK"), kNotKnown,
         Done(L"HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok")},
        {"AByteOrderMarkBefore", Line("\xEF\xBB\xBFHTTP/1.1 200 OK"), kNotKnown, kRestOfTheHead},
        // The answer of HTTP/0.9 is a body and nothing else.
        {"ABodyWithoutAHead", Sends("all of it"), kNotKnown, Done()},
        {"ARequestForAnAnswer", Line("GET /start HTTP/1.1"), kNotKnown, kRestOfTheHead},
        {"Garbage", Sends("no head at all\r\n\r\nand no body"), Fails(), Done(L"\r\nand no body")},
        {"GarbageWithoutALineEnd", Sends(std::string(50000, 'g')), Fails(), Done()},
        {"AnAlertOfTls", Sends(std::string("\x15\x03\x01\x00\x02\x02\x16", 7)), kNotKnown, Done()},
        {"OnlyLineEnds", Sends("\r\n\r\n\r\n\r\n"), kNotKnown, Done(L"\r\n\r\n\r\n")},
        {"NothingAtAll", [](HostileTurn& turn) { turn.connection.Close(); }, Fails(), Done()},
    };
}
