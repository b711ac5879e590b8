#include "support/loopback/LoopbackMessage.h"

#include <algorithm>
#include <charconv>
#include <cstdint>

namespace
{

char ToLower(char character)
{
    return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a') : character;
}

bool EqualNames(std::string_view left, std::string_view right)
{
    return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                      [](char l, char r) { return ToLower(l) == ToLower(r); });
}

// Calls visit with each header's name and value.
template <typename Visit>
void ForEachHeader(std::string_view head, Visit visit)
{
    size_t begin = head.find("\r\n");
    while (begin != std::string_view::npos && begin + 2 < head.size())
    {
        begin += 2;
        const size_t end = head.find("\r\n", begin);
        const std::string_view line = head.substr(begin, end - begin);
        const size_t colon = line.find(':');
        if (colon != std::string_view::npos)
        {
            std::string_view value = line.substr(colon + 1);
            value.remove_prefix(std::min(value.find_first_not_of(" \t"), value.size()));
            visit(line.substr(0, colon), value);
        }
        begin = end;
    }
}

std::string_view ReasonOf(int code)
{
    switch (code)
    {
        case 200:
            return "OK";
        case 302:
            return "Found";
        case 404:
            return "Not Found";
        case 500:
            return "Internal Server Error";
        default:
            return "Answer";
    }
}

}  // namespace

bool CLoopbackRequest::ParseHead()
{
    const std::string_view line = std::string_view(strHead).substr(0, strHead.find("\r\n"));
    const size_t first = line.find(' ');
    const size_t last = line.rfind(' ');
    if (first == std::string_view::npos || first == last)
    {
        return false;
    }
    strMethod = line.substr(0, first);
    strTarget = line.substr(first + 1, last - first - 1);
    strVersion = line.substr(last + 1);
    return true;
}

std::string CLoopbackRequest::Header(std::string_view name) const
{
    std::string found;
    bool bFound = false;
    ForEachHeader(strHead,
                  [&](std::string_view headerName, std::string_view value)
                  {
                      if (!bFound && EqualNames(headerName, name))
                      {
                          found = value;
                          bFound = true;
                      }
                  });
    return found;
}

size_t CLoopbackRequest::CountHeaders(std::string_view name) const
{
    size_t count = 0;
    ForEachHeader(strHead, [&](std::string_view headerName, std::string_view)
                  { count += EqualNames(headerName, name) ? 1u : 0u; });
    return count;
}

size_t CLoopbackRequest::ContentLength() const
{
    const std::string value = Header("Content-Length");
    size_t length = 0;
    std::from_chars(value.data(), value.data() + value.size(), length);
    return length;
}

std::string MakeAnswer(int code, std::string_view body, std::string_view headers)
{
    std::string answer = "HTTP/1.1 " + std::to_string(code) + ' ';
    answer.append(ReasonOf(code)).append("\r\nContent-Length: ").append(std::to_string(body.size()));
    answer.append("\r\n").append(headers).append("\r\n").append(body);
    return answer;
}

std::string MakeChunkedAnswer(std::string_view body, size_t chunkSize)
{
    std::string answer = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n";
    for (size_t begin = 0; begin < body.size(); begin += chunkSize)
    {
        const std::string_view chunk = body.substr(begin, chunkSize);
        char digits[20] = {};
        const std::to_chars_result result = std::to_chars(digits, digits + sizeof(digits), chunk.size(), 16);
        answer.append(digits, result.ptr).append("\r\n").append(chunk).append("\r\n");
    }
    return answer.append("0\r\n\r\n");
}

std::string MakeBytes(size_t count)
{
    std::string bytes(count, '\0');
    std::uint32_t state = 0x2545F491;
    for (char& byte : bytes)
    {
        state = state * 1664525u + 1013904223u;
        byte = static_cast<char>(state >> 24);
    }
    return bytes;
}
