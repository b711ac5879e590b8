// Chunked bodies with sizes that lie.
#include "system/hostile/HostileRow.h"

namespace
{

HostileServe Chunks(std::string_view body)
{
    return Sends(std::string("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n").append(body));
}

HostileServe Encoded(std::string_view encoding, std::string_view body)
{
    return Sends(std::string("HTTP/1.1 200 OK\r\nTransfer-Encoding: ")
                     .append(encoding)
                     .append("\r\n\r\n")
                     .append(body));
}

}  // namespace

std::vector<HostileRow> ChunkRows()
{
    return {
        {"OnlyTheLast", Chunks("0\r\n\r\n"), Done()},
        {"SizeIsNoNumber", Chunks("xyz\r\nfirst\r\n"), Done()},
        {"SecondSizeIsNoNumber", Chunks("5\r\nfirst\r\nxyz\r\nsecond\r\n0\r\n\r\n"), kNotKnown,
         Done(L"first")},
        {"SizeIsNegative", Chunks("-5\r\nfirst\r\n0\r\n\r\n"), kNotKnown, Done(L"first")},
        {"SizeHasAPlusSign", Chunks("+5\r\nfirst\r\n0\r\n\r\n"), kNotKnown, Done(L"first")},
        {"SizeHasAPrefix", Chunks("0x5\r\nfirst\r\n0\r\n\r\n"), kNotKnown, Done(L"first")},
        {"SizeHasLeadingZeros", Chunks(std::string(100, '0') + "5\r\nfirst\r\n0\r\n\r\n"), kNotKnown,
         Done(L"first")},
        {"SizeOf32Bits", Chunks("FFFFFFFF\r\nfirst"), kNotKnown, Done(L"first")},
        {"SizeOf64Bits", Chunks("FFFFFFFFFFFFFFFF\r\nfirst"), kNotKnown, Done(L"first")},
        {"FiveBeyond32Bits", Chunks("100000005\r\nfirst\r\n0\r\n\r\n"), kNotKnown, Done(L"first")},
        {"FiveBeyond64Bits", Chunks("10000000000000005\r\nfirst\r\n0\r\n\r\n"), kNotKnown, Done(L"first")},
        {"SizeOfAThousandDigits", Chunks(std::string(1000, 'F') + "\r\nfirst"), kNotKnown, Done(L"first")},
        {"SizeWithAnExtension", Chunks("5;name=value\r\nfirst\r\n0;last\r\n\r\n"), Done(L"first")},
        {"AnExtensionOf100Kilobytes", Chunks("5;" + std::string(100 * 1024, 'e') + "\r\nfirst\r\n0\r\n\r\n"),
         kNotKnown, Done(L"first")},
        {"SizeWithBlanks", Chunks("5  \r\nfirst\r\n0\r\n\r\n"), kNotKnown, Done(L"first")},
        {"SizeIsTooSmall", Chunks("3\r\nfirst\r\n0\r\n\r\n"), kNotKnown, Done(L"fir")},
        {"SizeIsTooLarge", Chunks("7\r\nfirst\r\n0\r\n\r\n"), kNotKnown, Done(L"first\r\n")},
        {"LineEndsWithoutCarriageReturns", Chunks("5\nfirst\n0\n\n"), kNotKnown, Done(L"first")},
        {"WithTrailers", Chunks("5\r\nfirst\r\n0\r\nX-Trailer: value\r\nX-More: value\r\n\r\n"),
         Done(L"first")},
        {"WithoutTheLast", Chunks("5\r\nfirst\r\n"), kNotKnown, Done(L"first")},
        {"CutInsideAChunk", Chunks("5\r\nfirst\r\n8\r\nsec"), Done(L"firstsec")},
        {"CutInsideTheTrailers", Chunks("5\r\nfirst\r\n0\r\nX-Tra"), kNotKnown, Done(L"first")},
        {"NotChunkedAtAll", Chunks("no chunk in sight"), kNotKnown, Done()},
        {"TenThousandOfOneByte",
         [](HostileTurn& turn)
         {
             turn.Send(MakeChunkedAnswer(std::string(10000, 'x'), 1));
             turn.connection.Close();
         },
         Done(std::wstring(10000, L'x'))},
        {"EncodingInOtherCase", Encoded("CHUNKED", "5\r\nfirst\r\n0\r\n\r\n"), Done(L"first")},
        {"EncodingUnknown", Encoded("elaborate", "first"), kNotKnown, Done(L"first")},
        {"UnderHttp10", Sends("HTTP/1.0 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nfirst\r\n0\r\n\r\n"),
         kNotKnown, Done(L"first")},
    };
}
