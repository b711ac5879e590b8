// A server that misbehaves, as one row of a table: what it does to each request, and how the exchanges of
// one component with it end. The rows stand in the files of this folder by topic; HostileServerTest.cpp runs
// each one as a test.
#pragma once

#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "kvHttp/HttpRaw.h"
#include "support/loopback/LoopbackServer.h"

// How one exchange ends. Nothing: GetResponseData has no answer to give.
struct HostileOutcome
{
    unsigned long status;
    std::optional<std::wstring> body;
    bool operator==(const HostileOutcome&) const = default;
};

// How a row ends on one platform.
struct HostileExpectation
{
    std::vector<HostileOutcome> outcomes;  // of the exchanges, in order; none: it is not known
    // What reaches the server: "POST /start a=1"; a '*' at the end stands for any rest. Empty: each exchange
    // once, as it was sent.
    std::vector<std::string> arrivals;
    std::vector<std::string> elsewhere;  // what reaches the other server, likewise

    // One more exchange of the same component.
    HostileExpectation Then(unsigned long status, std::optional<std::wstring> body) const;
    HostileExpectation Arriving(std::vector<std::string> expected) const;
    HostileExpectation Elsewhere(std::vector<std::string> expected) const;
};

HostileExpectation Ends(unsigned long status, std::optional<std::wstring> body = std::nullopt);
// With an answer, which is empty when none is named.
HostileExpectation Done(std::optional<std::wstring> body = std::nullopt);
HostileExpectation Fails();
HostileExpectation TimesOut();

// For rows that were never seen on Windows and that its documentation does not decide: there the exchanges
// have to end, with whatever status.
inline const HostileExpectation kNotKnown = {};

struct HostilePorts
{
    unsigned short own;
    unsigned short other;
    unsigned short refused;

    // Puts them in for {port}, {other} and {refused}, and for {past} one above 65535 that is the other's when
    // it is cut to 16 bits.
    std::string Fill(std::string_view text) const;
};

// One request to the server of a row, on the connection's own thread.
struct HostileTurn
{
    const CLoopbackRequest& request;
    CLoopbackConnection& connection;
    size_t number;  // of the request, from 0
    HostilePorts ports;

    void Send(std::string_view text) { connection.Send(text); }
};

using HostileServe = std::function<void(HostileTurn&)>;

// Sends the bytes at once and closes the connection, or leaves it open for a next request.
HostileServe Sends(std::string bytes);
HostileServe SendsAndStays(std::string bytes);

struct HostileRow
{
    std::string label;
    HostileServe serve;
    HostileExpectation expected = kNotKnown;
    // What Wine makes of it where it differs from Windows, or where Windows is not known.
    std::optional<HostileExpectation> underWine = std::nullopt;
    std::optional<HostileExpectation> fromWine10 = std::nullopt;   // where that version differs from Wine 8
    std::optional<HostileExpectation> orUnderWine = std::nullopt;  // where that is left to chance
    size_t formSize = 0;         // of the first exchange, where it is not "a=1"
    unsigned long seconds = 15;  // the component's time-out
    CLoopbackServer::ReadMode mode = CLoopbackServer::READ_WHOLE;
    // Wine wakes a read of single bytes neither when its handle is closed nor when a byte comes: there the
    // server ends before the component is released.
    bool bEndsBeforeReleaseUnderWine = false;

    // One of these; none where it is not known.
    std::vector<HostileExpectation> Expected() const;
    // Each exchange goes to /start or, after the first, to /second, /third with "b=2", "c=3".
    size_t CountExchanges() const;
};

std::ostream& operator<<(std::ostream& stream, const HostileRow& row);

std::vector<HostileRow> HeadRows();
std::vector<HostileRow> StatusLineRows();
std::vector<HostileRow> CodeRows();
std::vector<HostileRow> LengthRows();
std::vector<HostileRow> ChunkRows();
std::vector<HostileRow> BodyRows();
std::vector<HostileRow> RedirectRows();
std::vector<HostileRow> RedirectChainRows();
std::vector<HostileRow> ConnectionRows();
std::vector<HostileRow> TimingRows();
