#include "system/hostile/HostileRow.h"

#include <algorithm>
#include <memory>
#include <utility>

#include "support/WineVersion.h"
#include "system/HttpRawHost.h"

namespace
{

void Replace(std::string& text, std::string_view what, unsigned port)
{
    const std::string digits = std::to_string(port);
    for (size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += digits.size())
    {
        text.replace(at, what.size(), digits);
    }
}

}  // namespace

HostileExpectation HostileExpectation::Then(unsigned long status, std::optional<std::wstring> body) const
{
    HostileExpectation copy = *this;
    copy.outcomes.push_back({status, std::move(body)});
    return copy;
}

HostileExpectation HostileExpectation::Arriving(std::vector<std::string> expected) const
{
    HostileExpectation copy = *this;
    copy.arrivals = std::move(expected);
    return copy;
}

HostileExpectation HostileExpectation::Elsewhere(std::vector<std::string> expected) const
{
    HostileExpectation copy = *this;
    copy.elsewhere = std::move(expected);
    return copy;
}

HostileExpectation Ends(unsigned long status, std::optional<std::wstring> body)
{
    return HostileExpectation{}.Then(status, std::move(body));
}

HostileExpectation Done(std::optional<std::wstring> body)
{
    return Ends(REQ_STATUS_DONE, std::move(body));
}

HostileExpectation Fails()
{
    return Ends(REQ_STATUS_FAILED);
}

HostileExpectation TimesOut()
{
    return Ends(REQ_STATUS_TIMEOUT);
}

std::string HostilePorts::Fill(std::string_view text) const
{
    std::string filled(text);
    Replace(filled, "{port}", own);
    Replace(filled, "{other}", other);
    Replace(filled, "{refused}", refused);
    Replace(filled, "{past}", other + 65536u);
    return filled;
}

HostileServe Sends(std::string bytes)
{
    return [pBytes = std::make_shared<const std::string>(std::move(bytes))](HostileTurn& turn)
    {
        turn.Send(*pBytes);
        turn.connection.Close();
    };
}

HostileServe SendsAndStays(std::string bytes)
{
    return [pBytes = std::make_shared<const std::string>(std::move(bytes))](HostileTurn& turn)
    { turn.Send(*pBytes); };
}

std::vector<HostileExpectation> HostileRow::Expected() const
{
    if (WineVersion() >= 10 && fromWine10.has_value())
    {
        return {*fromWine10};
    }
    if (!IsWine() || !underWine.has_value())
    {
        return expected.outcomes.empty() ? std::vector<HostileExpectation>{} : std::vector{expected};
    }
    return orUnderWine.has_value() ? std::vector{*underWine, *orUnderWine} : std::vector{*underWine};
}

size_t HostileRow::CountExchanges() const
{
    return std::max(expected.outcomes.size(), underWine.value_or(expected).outcomes.size());
}

std::ostream& operator<<(std::ostream& stream, const HostileRow& row)
{
    return stream << row.label;
}
