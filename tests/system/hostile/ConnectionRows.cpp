// Connections that end, or go on, at the wrong moment: while the form is on its way, and between the
// exchanges of one component.
#include "system/hostile/HostileRow.h"

namespace
{

constexpr size_t kForm64 = 64 * 1024;
// More than the buffers of both ends of a connection hold.
constexpr size_t kFormBeyondBuffers = 16 * 1024 * 1024;

std::string Page(std::string_view text)
{
    return MakeAnswer(200, text);
}

void Drain(CLoopbackConnection& connection, size_t count)
{
    std::string bytes;
    while (bytes.size() < count && connection.Receive(bytes))
    {
    }
}

// The first answer is the one that misbehaves, the others are as they should be.
HostileServe First(HostileServe misbehave)
{
    return [misbehave = std::move(misbehave)](HostileTurn& turn)
    {
        if (turn.number == 0)
        {
            misbehave(turn);
            return;
        }
        turn.Send(Page("page of " + turn.request.strTarget));
    };
}

HostileServe FirstSends(std::string bytes)
{
    return First(SendsAndStays(std::move(bytes)));
}

HostileServe FirstSendsAndCloses(std::string bytes)
{
    return First(Sends(std::move(bytes)));
}

HostileExpectation BothDone(std::optional<std::wstring> first, std::optional<std::wstring> second)
{
    return Done(std::move(first)).Then(REQ_STATUS_DONE, std::move(second));
}

HostileRow WithForm(HostileRow row, size_t size, CLoopbackServer::ReadMode mode)
{
    row.formSize = size;
    row.mode = mode;
    return row;
}

std::vector<HostileRow> FormRows()
{
    const auto mode = CLoopbackServer::READ_HEAD_ONLY;
    const std::vector<std::string> once = {"POST /start"};
    return {
        WithForm({"AnswersBeforeItTakesTheForm",
                  [](HostileTurn& turn)
                  {
                      turn.Send(Page("early"));
                      Drain(turn.connection, kForm64);
                  },
                  Done(L"early").Arriving(once)},
                 kForm64, mode),
        WithForm({"AnswersAndNeverTakesTheForm",
                  [](HostileTurn& turn)
                  {
                      turn.Send(Page("early"));
                      turn.connection.Stall();
                  },
                  Done(L"early").Arriving(once)},
                 kForm64, mode),
        // The platform has the whole answer before the reset comes.
        WithForm({"AnswersAndClosesWithTheFormUntaken",
                  [](HostileTurn& turn)
                  {
                      turn.Send(Page("early"));
                      turn.connection.Pause(300);
                      turn.connection.Close();
                  },
                  kNotKnown, Done(L"early").Arriving(once)},
                 kForm64, mode),
        WithForm({"AnswersWhileTheFormIsSent",
                  [](HostileTurn& turn)
                  {
                      turn.Send(Page("early"));
                      Drain(turn.connection, kFormBeyondBuffers);
                  },
                  Done(L"early").Arriving(once)},
                 kFormBeyondBuffers, mode),
        WithForm({"ResetsWhileTheFormIsSent",
                  [](HostileTurn& turn)
                  {
                      turn.connection.Pause(300);
                      turn.connection.Reset();
                  },
                  Fails().Arriving(once)},
                 kFormBeyondBuffers, mode),
        WithForm({"AnswersAndResetsWhileTheFormIsSent",
                  [](HostileTurn& turn)
                  {
                      turn.Send(Page("early"));
                      turn.connection.Pause(300);
                      turn.connection.Reset();
                  },
                  kNotKnown, Fails().Arriving(once)},
                 kFormBeyondBuffers, mode),
        WithForm({"AnswersBeforeTheRequestIsRead",
                  [](HostileTurn& turn)
                  {
                      turn.Send(Page("at once"));
                      turn.connection.Stall();
                  },
                  kNotKnown, Done(L"at once").Arriving({"a connection"})},
                 3, CLoopbackServer::READ_NOTHING),
    };
}

std::vector<HostileRow> CloseRows()
{
    const std::string post = "POST /start a=1";
    const std::string second = "POST /second b=2";
    return {
        {"ClosesBetweenTwo", FirstSendsAndCloses(Page("first")), BothDone(L"first", L"page of /second")},
        {"ResetsBetweenTwo",
         First(
             [](HostileTurn& turn)
             {
                 turn.Send(Page("first"));
                 turn.connection.Pause(100);
                 turn.connection.Reset();
             }),
         BothDone(L"first", L"page of /second")},
        {"ClosesAfterEach", Sends(Page("page")), BothDone(L"page", L"page").Then(REQ_STATUS_DONE, L"page")},
        {"SaysThatItClosesAndStays", FirstSends(MakeAnswer(200, "first", "Connection: close\r\n")),
         BothDone(L"first", L"page of /second")},
        {"SaysThatItStaysAndCloses",
         FirstSendsAndCloses(MakeAnswer(200, "first", "Connection: keep-alive\r\n")),
         BothDone(L"first", L"page of /second")},
        // The platform takes the connection for one that had ended before, and sends the form once more.
        {"ClosesWhenTheSecondComes",
         [](HostileTurn& turn)
         {
             if (turn.number == 1)
             {
                 turn.connection.Close();
                 return;
             }
             turn.Send(Page("page of " + turn.request.strTarget));
         },
         kNotKnown, BothDone(L"page of /start", L"page of /second").Arriving({post, second, second})},
        {"ClosesWheneverTheSecondComes",
         [](HostileTurn& turn)
         {
             if (turn.number > 0)
             {
                 turn.connection.Close();
                 return;
             }
             turn.Send(Page("page of " + turn.request.strTarget));
         },
         Done(L"page of /start").Then(REQ_STATUS_FAILED, std::nullopt).Arriving({post, second, second}),
         BothDone(L"page of /start", std::nullopt).Arriving({post, second, second})},
        {"ResetsWhenTheSecondComes",
         [](HostileTurn& turn)
         {
             if (turn.number == 1)
             {
                 turn.connection.Pause(300);
                 turn.connection.Reset();
                 return;
             }
             turn.Send(Page("page of " + turn.request.strTarget));
         },
         kNotKnown, Done(L"page of /start").Then(REQ_STATUS_FAILED, std::nullopt)},
        {"FailsAtFirst",
         First(
             [](HostileTurn& turn)
             {
                 turn.connection.Pause(300);
                 turn.connection.Reset();
             }),
         Fails().Then(REQ_STATUS_DONE, L"page of /second")},
    };
}

// The wait makes the component's clock, which runs from the opening, end before the platform's, which runs
// from the last byte.
HostileServe FirstSendsLater(std::string bytes)
{
    return First(
        [bytes = std::move(bytes)](HostileTurn& turn)
        {
            turn.connection.Pause(500);
            turn.Send(bytes);
        });
}

// Wine, once it has read more than the length says, reads on until the connection ends or falls silent for
// too long. The exchange after that has a connection of its own.
HostileRow ReadBeyondItsLength(HostileRow row)
{
    row.expected = kNotKnown;
    row.underWine = TimesOut().Then(REQ_STATUS_DONE, L"page of /second");
    row.seconds = 1;
    return row;
}

std::vector<HostileRow> LeftoverRows()
{
    const std::string stray = MakeAnswer(200, "stray");
    return {
        ReadBeyondItsLength({"TwoAnswersAtOnce", FirstSendsLater(Page("first") + stray)}),
        // Wine takes what waits on a kept connection for the next answer, before the next request is sent. On
        // a busy machine it seldom finds only a part there, and waits in vain for the rest.
        {"ASecondAnswerLater",
         First(
             [stray](HostileTurn& turn)
             {
                 turn.Send(Page("first"));
                 turn.connection.Pause(100);
                 turn.Send(stray);
             }),
         kNotKnown, BothDone(L"first", L"stray"), std::nullopt, BothDone(L"first", std::nullopt)},
        ReadBeyondItsLength({"MoreThanTheLength",
                             FirstSendsLater("HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nfirst and more")}),
        {"ABodyOfLengthZero", FirstSends("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\nstray"), kNotKnown,
         BothDone(L"stray", L"page of /second")},
        {"MoreAfterTheLastChunk", FirstSends(MakeChunkedAnswer("first", 5) + stray), kNotKnown,
         BothDone(L"first", L"page of /second")},
        {"AnUnasked408ThenAClose",
         First(
             [](HostileTurn& turn)
             {
                 turn.Send(Page("first"));
                 turn.connection.Pause(100);
                 turn.Send(MakeAnswer(408, "too slow", "Connection: close\r\n"));
                 turn.connection.Close();
             }),
         kNotKnown, Done(L"first").Then(REQ_STATUS_TIMEOUT, std::nullopt).Arriving({"POST /start a=1"}),
         Done(L"first").Then(REQ_STATUS_FAILED, std::nullopt).Arriving({"POST /start a=1"})},
        // The module does not read the page of a 404.
        {"AnUnreadPageOf100Kilobytes", FirstSends(MakeAnswer(404, std::string(100 * 1024, 'u'))),
         Ends(REQ_STATUS_HTTP_ERROR).Then(REQ_STATUS_DONE, L"page of /second")},
        {"AnUnreadPageThatLooksLikeAnAnswer", FirstSends(MakeAnswer(404, stray)),
         Ends(REQ_STATUS_HTTP_ERROR).Then(REQ_STATUS_DONE, L"page of /second")},
        {"AnUnreadPageThatNeverComes", FirstSends("HTTP/1.1 404 No\r\nContent-Length: 100000\r\n\r\nbegin"),
         Ends(REQ_STATUS_HTTP_ERROR).Then(REQ_STATUS_DONE, L"page of /second")},
        {"AnUnreadChunkedPage",
         FirstSends("HTTP/1.1 404 No\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nfirst\r\n0\r\n\r\n"),
         Ends(REQ_STATUS_HTTP_ERROR).Then(REQ_STATUS_DONE, L"page of /second")},
        {"A204WithABody", FirstSends("HTTP/1.1 204 No\r\nContent-Length: 4\r\n\r\npage"), kNotKnown,
         BothDone(L"page", L"page of /second")},
        {"AContinueTooMany",
         First(
             [](HostileTurn& turn)
             {
                 turn.Send(Page("first"));
                 turn.connection.Pause(100);
                 turn.Send("HTTP/1.1 100 Continue\r\n\r\n");
             }),
         kNotKnown, BothDone(L"first", L"page of /second")},
    };
}

}  // namespace

std::vector<HostileRow> ConnectionRows()
{
    std::vector<HostileRow> rows = FormRows();
    for (const std::vector<HostileRow>& more : {CloseRows(), LeftoverRows()})
    {
        rows.insert(rows.end(), more.begin(), more.end());
    }
    return rows;
}
