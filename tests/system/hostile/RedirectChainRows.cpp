// Redirects one after another, as the platform follows them: /start, /hop1, /hop2 and so on, then a page.
#include "system/hostile/HostileRow.h"

namespace
{

HostileServe Chain(size_t length, int code)
{
    return [length, code](HostileTurn& turn)
    {
        if (turn.number >= length)
        {
            turn.connection.Send(MakeAnswer(200, "the end"));
            return;
        }
        const std::string location = "Location: /hop" + std::to_string(turn.number + 1) + "\r\n";
        turn.connection.Send(MakeAnswer(code, "elsewhere", location));
    };
}

// The form goes to the first only; each further one gets verb and, with a blank before it, form.
HostileExpectation Reaches(size_t length, const std::string& verb, const std::string& form = {})
{
    std::vector<std::string> arrivals = {"POST /start a=1"};
    for (size_t hop = 1; hop <= length; ++hop)
    {
        arrivals.push_back(verb + " /hop" + std::to_string(hop) + form);
    }
    return Done(L"the end").Arriving(std::move(arrivals));
}

}  // namespace

std::vector<HostileRow> RedirectChainRows()
{
    std::vector<HostileRow> rows;
    for (const size_t length : {size_t{4}, size_t{6}})
    {
        const std::string of = (length == 4 ? "FourOf" : "SixOf");
        for (const int code : {301, 302, 303})
        {
            rows.push_back({of + std::to_string(code), Chain(length, code), Reaches(length, "GET")});
        }
        // Wine does not send the form again.
        rows.push_back(
            {of + "307", Chain(length, 307), Reaches(length, "POST", " a=1"), Reaches(length, "POST")});
        // Neither the platform nor the module follows this one.
        rows.push_back({of + "308", Chain(length, 308), Done(L"elsewhere")});
    }
    // Under Wine the number has no limit.
    rows.push_back({"TwentyFiveOf302", Chain(25, 302), kNotKnown, Reaches(25, "GET")});
    return rows;
}
