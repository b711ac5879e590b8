// What stands in the head of an answer, below the status line.
#include "system/hostile/HostileRow.h"

namespace
{

std::string ManyHeaders(size_t count)
{
    std::string headers;
    for (size_t index = 0; index < count; ++index)
    {
        headers.append("X-Header-").append(std::to_string(index)).append(": value\r\n");
    }
    return headers;
}

std::string Head(std::string_view headers)
{
    return std::string("HTTP/1.1 200 OK\r\n").append(headers).append("\r\n");
}

const std::string kContinue = "HTTP/1.1 100 Continue\r\n\r\n";
const std::string kOk = "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok";

}  // namespace

std::vector<HostileRow> HeadRows()
{
    return {
        {"NoHeadersAndABodyUntilTheClose", Sends("HTTP/1.1 200 OK\r\n\r\nall of it"), Done(L"all of it")},
        {"NoHeadersAndNoBody", Sends("HTTP/1.1 200 OK\r\n\r\n"), Done()},
        {"ContinueOnce", Sends(kContinue + kOk), Done(L"ok")},
        {"ContinueTwice", Sends(kContinue + kContinue + kOk), Done(L"ok")},
        {"ContinueFiftyTimes",
         [](HostileTurn& turn)
         {
             for (int count = 0; count < 50; ++count)
             {
                 turn.Send(kContinue);
             }
             turn.Send(kOk);
             turn.connection.Close();
         },
         Done(L"ok")},
        {"ContinueAndNothingMore", Sends(kContinue), kNotKnown, Done()},
        {"FiveThousandHeaders", Sends(Head("Content-Length: 2\r\n" + ManyHeaders(5000)) + "ok"), kNotKnown,
         Done(L"ok")},
        {"AHeaderOf100Kilobytes",
         Sends(Head("Content-Length: 2\r\nX-Long: " + std::string(100 * 1024, 'x') + "\r\n") + "ok"),
         kNotKnown, Done(L"ok")},
        {"AHeadOfAMegabyte",
         [](HostileTurn& turn)
         {
             turn.Send(Head("Content-Length: 2\r\nX-Long: " + std::string(1024 * 1024, 'x') + "\r\n") + "ok");
             turn.connection.Close();
         },
         kNotKnown, Done(L"ok")},
        {"ANulInAHeader", Sends(Head(std::string("X-Nul: a\0b\r\nContent-Length: 2\r\n", 32)) + "ok"),
         kNotKnown, Done(L"ok")},
        {"AHeaderWithoutAColon", Sends(Head("no colon here\r\nContent-Length: 2\r\n") + "ok"), kNotKnown,
         Done(L"ok")},
        {"AHeaderWithoutAName", Sends(Head(": no name\r\nContent-Length: 2\r\n") + "ok"), kNotKnown,
         Done(L"ok")},
        {"ABlankBeforeTheColon", Sends(Head("Content-Length : 2\r\n") + "okmore"), kNotKnown,
         Done(L"okmore")},
        {"AFoldedHeader", Sends(Head("X-Folded: one\r\n two\r\n\tthree\r\nContent-Length: 2\r\n") + "ok"),
         kNotKnown, Done(L"ok")},
        {"AFoldedLength", Sends(Head("Content-Length:\r\n 2\r\n") + "okmore"), kNotKnown, Done(L"okmore")},
        {"HeaderNamesInOtherCase", Sends(Head("cONTENT-lENGTH: 2\r\n") + "ok"), Done(L"ok")},
        {"HeaderBytesThatAreNotAscii", Sends(Head("X-\xE4: \xFF\xFE\x80\r\nContent-Length: 2\r\n") + "ok"),
         kNotKnown, Done(L"ok")},
        {"LineEndsWithoutCarriageReturns", Sends("HTTP/1.1 200 OK\nContent-Length: 2\n\nok"), kNotKnown,
         Done(L"ok")},
        {"LineEndsWithoutLineFeeds", Sends("HTTP/1.1 200 OK\rContent-Length: 2\r\rok"), kNotKnown, Done()},
        {"MixedLineEnds", Sends("HTTP/1.1 200 OK\nX-A: b\r\nContent-Length: 2\n\r\nok"), kNotKnown,
         Done(L"ok")},
        {"TheHeadByteByByte",
         [](HostileTurn& turn)
         {
             for (const char letter : kOk)
             {
                 turn.connection.Send({&letter, 1});
             }
             turn.connection.Close();
         },
         Done(L"ok")},
        {"ClosesInsideTheHead", Sends("HTTP/1.1 200 OK\r\nContent-Le"), Fails(), Done()},
        {"ClosesAfterTheStatusLine", Sends("HTTP/1.1 200 OK\r\n"), kNotKnown, Done()},
        {"TwoHeadsInOne", Sends("HTTP/1.1 200 OK\r\nHTTP/1.1 404 Not Found\r\nContent-Length: 2\r\n\r\nok"),
         kNotKnown, Done(L"ok")},
    };
}
