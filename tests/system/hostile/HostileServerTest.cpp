// Servers that break the protocol, lie or fall silent: how each exchange with them ends, byte for byte, and
// that the component can be released.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <sstream>

#include "support/Mutex.h"
#include "support/WineVersion.h"
#include "system/hostile/HostileRow.h"
#include "system/HttpRawHost.h"

namespace
{

// On a busy machine, where Wine lets a blocked read run into the row's time-out as well.
constexpr DWORD kReleaseBoundMs = 5000;

struct Exchange
{
    const wchar_t* pszTarget;
    const wchar_t* pszForm;
};

constexpr Exchange kExchanges[] = {{L"/start", L"a=1"}, {L"/second", L"b=2"}, {L"/third", L"c=3"}};

// Long texts are shown by their size and their beginning.
std::string Shorten(std::string text)
{
    constexpr size_t kShown = 160;
    const size_t length = text.size();
    if (length > kShown)
    {
        text.resize(kShown);
        text.append("... (").append(std::to_string(length)).append(" in all)");
    }
    return text;
}

std::string Describe(const HostileExpectation& expectation)
{
    std::ostringstream text;
    for (const HostileOutcome& outcome : expectation.outcomes)
    {
        text << "\n  " << Status{outcome.status} << ", answer ";
        text << (outcome.body ? std::to_string(outcome.body->size()) + ' ' : std::string());
        text << Shorten(testing::PrintToString(outcome.body.value_or(L"<none>")));
    }
    for (const std::string& arrival : expectation.arrivals)
    {
        text << "\n  " << Shorten(arrival);
    }
    for (const std::string& arrival : expectation.elsewhere)
    {
        text << "\n  elsewhere " << Shorten(arrival);
    }
    return text.str();
}

bool IsArrival(const std::string& got, std::string_view expected)
{
    const bool bAnyRest = expected.ends_with('*');
    expected.remove_suffix(bAnyRest ? 1 : 0);
    return bAnyRest ? got.starts_with(expected) : got == expected;
}

bool AreArrivals(const std::vector<std::string>& got, const std::vector<std::string>& expected)
{
    return std::equal(got.begin(), got.end(), expected.begin(), expected.end(), IsArrival);
}

bool Matches(const HostileExpectation& got, const HostileExpectation& expected)
{
    return got.outcomes == expected.outcomes && AreArrivals(got.arrivals, expected.arrivals) &&
           AreArrivals(got.elsewhere, expected.elsewhere);
}

// A port that refuses connections: it is taken, but no one listens.
class CRefusingPort
{
public:
    CRefusingPort() : m_socket(socket(AF_INET, SOCK_STREAM, IPPROTO_TCP))
    {
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        int length = sizeof(address);
        EXPECT_EQ(bind(m_socket, reinterpret_cast<const sockaddr*>(&address), length), 0);
        EXPECT_EQ(getsockname(m_socket, reinterpret_cast<sockaddr*>(&address), &length), 0);
        m_port = ntohs(address.sin_port);
    }
    ~CRefusingPort() { closesocket(m_socket); }
    CRefusingPort(const CRefusingPort&) = delete;
    CRefusingPort& operator=(const CRefusingPort&) = delete;

    unsigned short Port() const { return m_port; }

private:
    SOCKET m_socket;
    unsigned short m_port = 0;
};

class CHostileServer
{
public:
    explicit CHostileServer(const HostileRow& row)
        : m_row(row),
          m_other([](const CLoopbackRequest&, CLoopbackConnection& connection)
                  { connection.Send(MakeAnswer(200, "the other server")); }),
          m_server([this](const CLoopbackRequest& request, CLoopbackConnection& connection)
                   { Serve(request, connection); }, row.mode)
    {
    }
    ~CHostileServer() { m_server.Stop(); }

    std::wstring Url(const wchar_t* pszTarget) const { return m_server.Url(pszTarget); }
    void Release() { m_server.Release(); }
    std::vector<std::string> Arrivals() const { return DescribeRequests(m_server); }

    // Connections that bring no request are told as well.
    std::vector<std::string> Elsewhere() const
    {
        std::vector<std::string> texts = DescribeRequests(m_other);
        if (texts.empty())
        {
            texts.assign(m_other.CountConnections(), "a connection");
        }
        return texts;
    }

    // Puts in what an expectation leaves out, and the ports.
    void Complete(HostileExpectation& expectation) const
    {
        constexpr const char* kArrivals[] = {"POST /start a=1", "POST /second b=2", "POST /third c=3"};
        if (expectation.arrivals.empty())
        {
            expectation.arrivals.assign(kArrivals, kArrivals + expectation.outcomes.size());
        }
        for (std::string& arrival : expectation.elsewhere)
        {
            arrival = Ports().Fill(arrival);
        }
    }

    // An answer that needs no request can be there before the request is. Whether as many come as are
    // expected is for the comparison to say.
    void AwaitArrivals(std::vector<HostileExpectation> expectations) const
    {
        size_t count = expectations.empty() ? 0 : SIZE_MAX;
        for (HostileExpectation& expected : expectations)
        {
            Complete(expected);
            count = std::min(count, expected.arrivals.size());
        }
        m_server.AwaitRequests(count, kReleaseBoundMs);
    }

    // Waits until the server has done with every request that has come: has sent and closed what it will.
    bool AwaitServed()
    {
        std::unique_lock lock(m_mutex);
        return m_changed.wait_for(lock, std::chrono::milliseconds(kPatienceMs),
                                  [this] { return m_cServed == m_cBegun; });
    }

private:
    HostilePorts Ports() const { return {m_server.Port(), m_other.Port(), m_refusing.Port()}; }

    void Serve(const CLoopbackRequest& request, CLoopbackConnection& connection)
    {
        HostileTurn turn = {request, connection, Begin(), Ports()};
        m_row.serve(turn);
        {
            const std::lock_guard lock(m_mutex);
            ++m_cServed;
        }
        m_changed.notify_all();
    }

    size_t Begin()
    {
        const std::lock_guard lock(m_mutex);
        return m_cBegun++;
    }

    std::vector<std::string> DescribeRequests(const CLoopbackServer& server) const
    {
        std::vector<std::string> texts;
        for (const CLoopbackRequest& request : server.Requests())
        {
            if (request.strMethod.empty())
            {
                texts.push_back("a connection");
                continue;
            }
            std::string text = request.strMethod + ' ' + request.strTarget;
            if (m_row.mode == CLoopbackServer::READ_WHOLE && !request.strBody.empty())
            {
                text.append(" ").append(request.strBody);
            }
            if (const std::string credentials = request.Header("Authorization"); !credentials.empty())
            {
                text.append(" with ").append(credentials);
            }
            texts.push_back(text);
        }
        return texts;
    }

    const HostileRow& m_row;
    CMutex m_mutex;
    CCondition m_changed;
    size_t m_cBegun = 0;
    size_t m_cServed = 0;
    CLoopbackServer m_other;
    CRefusingPort m_refusing;
    CLoopbackServer m_server;
};

// GoogleTest copies each parameter several times. Rows are large, which takes minutes where each request of
// memory looks through the whole heap.
struct SharedRow
{
    std::shared_ptr<const HostileRow> pRow;
};

std::ostream& operator<<(std::ostream& stream, const SharedRow& shared)
{
    return stream << *shared.pRow;
}

auto Share(std::vector<HostileRow> rows)
{
    std::vector<SharedRow> shared;
    for (HostileRow& row : rows)
    {
        shared.push_back({std::make_shared<const HostileRow>(std::move(row))});
    }
    return testing::ValuesIn(shared);
}

class HostileServerTest : public testing::TestWithParam<SharedRow>
{
protected:
    static HostileOutcome RunExchange(CHttpRawHost& host, const CHostileServer& server, size_t number)
    {
        const Exchange& exchange = kExchanges[number];
        const size_t formSize = number == 0 ? GetParam().pRow->formSize : 0;
        host.Post(server.Url(exchange.pszTarget),
                  formSize > 0 ? std::wstring(formSize, L'f') : exchange.pszForm);
        const Status status = host.AwaitEnd();
        return {status.value, host.TakeAnswer()};
    }

    static void ExpectEnds(const std::vector<HostileOutcome>& outcomes)
    {
        for (const HostileOutcome& outcome : outcomes)
        {
            EXPECT_NE(Status{outcome.status}, Status{REQ_STATUS_SENDING});
            EXPECT_NE(Status{outcome.status}, Status{REQ_STATUS_RECEIVING});
        }
    }

    static void ExpectOneOf(std::vector<HostileExpectation> expectations, const HostileExpectation& got,
                            const CHostileServer& server)
    {
        std::string texts;
        bool bFound = expectations.empty();
        for (HostileExpectation& expected : expectations)
        {
            server.Complete(expected);
            bFound = bFound || Matches(got, expected);
            texts.append("\nexpected:").append(Describe(expected));
        }
        EXPECT_TRUE(bFound) << texts << "\ngot:" << Describe(got);
    }
};

TEST_P(HostileServerTest, EndsAsTheTableSays)
{
    const HostileRow& row = *GetParam().pRow;
    CHostileServer server(row);
    CHttpRawHost host;
    host->SetTimeout(row.seconds);
    HostileExpectation got;
    for (size_t number = 0; number < row.CountExchanges(); ++number)
    {
        EXPECT_TRUE(number == 0 || server.AwaitServed());
        got.outcomes.push_back(RunExchange(host, server, number));
    }
    server.AwaitArrivals(row.Expected());
    got.arrivals = server.Arrivals();
    got.elsewhere = server.Elsewhere();
    ExpectEnds(got.outcomes);
    ExpectOneOf(row.Expected(), got, server);
    if (row.bEndsBeforeReleaseUnderWine && IsWine())
    {
        server.Release();
    }
    EXPECT_LT(host.Release(), kReleaseBoundMs);
}

std::string LabelOf(const testing::TestParamInfo<SharedRow>& info)
{
    return info.param.pRow->label;
}

INSTANTIATE_TEST_SUITE_P(Head, HostileServerTest, Share(HeadRows()), LabelOf);
INSTANTIATE_TEST_SUITE_P(StatusLine, HostileServerTest, Share(StatusLineRows()), LabelOf);
INSTANTIATE_TEST_SUITE_P(Code, HostileServerTest, Share(CodeRows()), LabelOf);
INSTANTIATE_TEST_SUITE_P(Length, HostileServerTest, Share(LengthRows()), LabelOf);
INSTANTIATE_TEST_SUITE_P(Chunk, HostileServerTest, Share(ChunkRows()), LabelOf);
INSTANTIATE_TEST_SUITE_P(Body, HostileServerTest, Share(BodyRows()), LabelOf);
INSTANTIATE_TEST_SUITE_P(Redirect, HostileServerTest, Share(RedirectRows()), LabelOf);
INSTANTIATE_TEST_SUITE_P(RedirectChain, HostileServerTest, Share(RedirectChainRows()), LabelOf);
INSTANTIATE_TEST_SUITE_P(Connection, HostileServerTest, Share(ConnectionRows()), LabelOf);
INSTANTIATE_TEST_SUITE_P(Timing, HostileServerTest, Share(TimingRows()), LabelOf);

}  // namespace
