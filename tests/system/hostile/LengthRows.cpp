// Lengths that are wrong or no lengths. Each answer goes out in one piece.
#include "system/hostile/HostileRow.h"

namespace
{

HostileServe Lengths(std::string_view headers, std::string_view body)
{
    return Sends(std::string("HTTP/1.1 200 OK\r\n").append(headers).append("\r\n").append(body));
}

HostileServe Length(std::string_view length, std::string_view body = "body")
{
    return Lengths(std::string("Content-Length: ").append(length).append("\r\n"), body);
}

}  // namespace

std::vector<HostileRow> LengthRows()
{
    return {
        {"Zero", Length("0", ""), Done()},
        {"ZeroAndABody", Length("0"), kNotKnown, Done(L"body")},
        {"TooShort", Length("4", "four and more"), Done(L"four"), Done(L"four and more")},
        {"TooLong", Length("100", "only this"), Done(L"only this")},
        {"Negative", Length("-1"), kNotKnown, Done(L"body")},
        {"FourBeyond32Bits", Length("4294967300", "body and more"), kNotKnown, Done(L"body and more")},
        {"Exactly64Bits", Length("18446744073709551615"), kNotKnown, Done(L"body")},
        {"FourBeyond64Bits", Length("18446744073709551620", "body and more"), kNotKnown,
         Done(L"body and more")},
        {"AHundredDigits", Length(std::string(100, '9')), kNotKnown, Done(L"body")},
        {"Letters", Length("many"), Done(L"body")},
        {"LettersAfterDigits", Length("2xyz"), kNotKnown, Done(L"body")},
        {"Hexadecimal", Length("0x4"), kNotKnown, Done(L"body")},
        {"PlusSign", Length("+4"), kNotKnown, Done(L"body")},
        {"Blank", Length(""), kNotKnown, Done(L"body")},
        {"AListOfTwo", Length("4, 4"), kNotKnown, Done(L"body")},
        {"TwoThatDiffer", Lengths("Content-Length: 2\r\nContent-Length: 4\r\n", "body"), kNotKnown,
         Done(L"body")},
        {"TwoThatAreEqual", Lengths("Content-Length: 4\r\nContent-Length: 4\r\n", "body"), kNotKnown,
         Done(L"body")},
        {"WithChunks",
         Lengths("Content-Length: 2\r\nTransfer-Encoding: chunked\r\n", "4\r\nbody\r\n0\r\n\r\n"), kNotKnown,
         Done(L"body")},
        {"AfterChunks",
         Lengths("Transfer-Encoding: chunked\r\nContent-Length: 400\r\n", "4\r\nbody\r\n0\r\n\r\n"),
         kNotKnown, Done(L"body")},
    };
}
