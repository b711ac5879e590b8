// Status codes: the usual ones that the module tells apart, the rest of each class, and what is no code.
#include "system/hostile/HostileRow.h"

namespace
{

HostileServe Code(std::string_view code)
{
    return Sends(std::string("HTTP/1.1 ").append(code).append(" Answer\r\nContent-Length: 4\r\n\r\npage"));
}

const HostileExpectation kPage = Done(L"page");
const HostileExpectation kHttpError = Ends(REQ_STATUS_HTTP_ERROR);

}  // namespace

std::vector<HostileRow> CodeRows()
{
    return {
        {"100AndAClose", Code("100"), kNotKnown, Done()},
        {"101", Code("101"), kNotKnown, kPage},
        {"103", Code("103"), kNotKnown, kPage},
        {"200", Code("200"), kPage},
        {"201", Code("201"), kPage},
        {"204WithABody", Code("204"), kNotKnown, kPage},
        {"300", Code("300"), kPage},
        {"304WithABody", Code("304"), kNotKnown, kPage},
        {"305", Code("305"), kNotKnown, kPage},
        {"308WithoutALocation", Code("308"), kPage},
        {"400", Code("400"), kHttpError},
        {"401", Code("401"), kHttpError},
        {"403", Code("403"), kPage},
        {"404", Code("404"), kHttpError},
        {"405", Code("405"), kHttpError},
        {"406", Code("406"), kPage},
        {"408", Code("408"), TimesOut()},
        {"429", Code("429"), kPage},
        {"500", Code("500"), kPage},
        {"503", Code("503"), kPage},
        {"599", Code("599"), kPage},
        {"0", Code("0"), kNotKnown, kPage},
        {"2", Code("2"), kNotKnown, kPage},
        {"999", Code("999"), kPage},
        {"Minus12", Code("-12"), kNotKnown, kPage},
        {"Plus404", Code("+404"), kNotKnown, kHttpError},
        {"0404", Code("0404"), kNotKnown, kHttpError},
        {"LettersForDigits", Code("4O4"), kNotKnown, kPage},
        {"NoNumber", Code("abc"), kPage},
        {"Hexadecimal404", Code("0x194"), kNotKnown, kPage},
        {"404Past32Bits", Code("4294967700"), kNotKnown, kPage},
        {"404Past64Bits", Code("18446744073709552020"), kNotKnown, kPage},
        {"AHundredDigits", Code(std::string(100, '4')), kNotKnown, kPage},
        {"AThousandDigits", Code(std::string(1000, '4')), kNotKnown, kPage},
    };
}
