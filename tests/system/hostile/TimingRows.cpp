// Servers that take their time. The component's clock runs from the opening, whatever comes meanwhile.
#include "system/hostile/HostileRow.h"

namespace
{

// Byte by byte until the server is released or the bytes end.
void Trickle(HostileTurn& turn, std::string_view bytes, DWORD dwPauseMs)
{
    for (; !bytes.empty() && turn.connection.Send(bytes.substr(0, 1)); bytes.remove_prefix(1))
    {
        if (turn.connection.AwaitRelease(dwPauseMs))
        {
            break;
        }
    }
    turn.connection.Close();
}

}  // namespace

std::vector<HostileRow> TimingRows()
{
    return {
        {.label = "ABodyTrickledByteByByte",
         .serve =
             [](HostileTurn& turn)
         {
             turn.Send("HTTP/1.1 200 OK\r\nContent-Length: 30\r\n\r\n");
             Trickle(turn, std::string(30, 'x'), 200);
         },
         .expected = TimesOut(),
         .seconds = 1,
         .bEndsBeforeReleaseUnderWine = true},
        {.label = "AHeadTrickledByteByByte",
         .serve = [](HostileTurn& turn)
         { Trickle(turn, "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n", 200); },
         .expected = TimesOut(),
         .seconds = 1,
         .bEndsBeforeReleaseUnderWine = true},
        {.label = "ChunksTrickledByteByByte",
         .serve =
             [](HostileTurn& turn)
         {
             turn.Send("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n");
             Trickle(turn, std::string(30, '0'), 200);
         },
         .expected = TimesOut(),
         .seconds = 1,
         .bEndsBeforeReleaseUnderWine = true},
        {.label = "ContinuesForEver",
         .serve =
             [](HostileTurn& turn)
         {
             while (turn.connection.Send("HTTP/1.1 100 Continue\r\n\r\n") &&
                    !turn.connection.AwaitRelease(100))
             {
             }
             turn.connection.Close();
         },
         .expected = TimesOut(),
         .seconds = 1,
         .bEndsBeforeReleaseUnderWine = true},
        {.label = "AnswersLateButInTime",
         .serve =
             [](HostileTurn& turn)
         {
             turn.connection.Pause(500);
             turn.Send(MakeAnswer(200, "late"));
         },
         .expected = Done(L"late"),
         .seconds = 5},
        // Each opening starts the clock again.
        {.label = "SlowRedirectsTogetherLongerThanTheTimeOut",
         .serve =
             [](HostileTurn& turn)
         {
             turn.connection.Pause(400);
             turn.Send(MakeAnswer(turn.number < 3 ? 302 : 200, "page"));
         },
         .expected = Done(L"page").Arriving(
             {"POST /start a=1", "POST /start a=1", "POST /start a=1", "POST /start a=1"}),
         .seconds = 1},
    };
}
