// HTTP messages as the loopback server sees and writes them.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

// One request, byte for byte as it arrived.
struct CLoopbackRequest
{
    std::string strHead;  // request line and headers, with the empty line that ends them
    std::string strMethod;
    std::string strTarget;
    std::string strVersion;
    std::string strBody;

    // Splits strHead into the fields above; false when its first line is no request line.
    bool ParseHead();

    // The value of the first header of that name, whatever its case; empty when there is none.
    std::string Header(std::string_view name) const;
    size_t CountHeaders(std::string_view name) const;
    // 0 when the header is absent or no number.
    size_t ContentLength() const;
};

// A whole answer with its Content-Length. Each line of headers ends with "\r\n".
std::string MakeAnswer(int code, std::string_view body, std::string_view headers = {});

// A whole answer in chunks of that many bytes.
std::string MakeChunkedAnswer(std::string_view body, size_t chunkSize);

// Bytes without a pattern that a lost, doubled or displaced piece could hide in; the same for each call.
std::string MakeBytes(size_t count);
