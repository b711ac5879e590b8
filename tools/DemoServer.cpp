// The server of the demo: on 127.0.0.1, on a port that the system chooses. It answers /form with what it
// has received, and /report with some megabytes. Prints "port sha256-of-the-report" as its one line, and
// ends when its standard input does.
#include <windows.h>
#include <winsock2.h>

#include <bcrypt.h>

#include <array>
#include <cstdio>
#include <string>

#include "support/loopback/LoopbackServer.h"

namespace
{

constexpr size_t kReportSize = 8 * 1024 * 1024 + 1;
constexpr size_t kReportPiece = 256 * 1024;
constexpr DWORD kReportPauseMs = 10;  // so that there is progress to see

std::string Sha256(std::string bytes)
{
    BCRYPT_ALG_HANDLE hAlgorithm = nullptr;
    BCRYPT_HASH_HANDLE hHash = nullptr;
    std::array<unsigned char, 32> hash = {};
    BCryptOpenAlgorithmProvider(&hAlgorithm, BCRYPT_SHA256_ALGORITHM, nullptr, 0);
    BCryptCreateHash(hAlgorithm, &hHash, nullptr, 0, nullptr, 0, 0);
    BCryptHashData(hHash, reinterpret_cast<unsigned char*>(bytes.data()), static_cast<ULONG>(bytes.size()),
                   0);
    BCryptFinishHash(hHash, hash.data(), static_cast<ULONG>(hash.size()), 0);
    BCryptDestroyHash(hHash);
    BCryptCloseAlgorithmProvider(hAlgorithm, 0);
    std::string text;
    for (const unsigned byte : hash)
    {
        text += "0123456789abcdef"[byte >> 4];
        text += "0123456789abcdef"[byte & 0xF];
    }
    return text;
}

// How the request came here, where it was not straight.
std::string Route(const CLoopbackRequest& request)
{
    const std::string via = request.Header("Via");
    return via.empty() ? "" : " through the proxy " + via;
}

void Answer(const CLoopbackRequest& request, CLoopbackConnection& connection, const std::string& report)
{
    if (request.strTarget == "/form")
    {
        connection.Send(MakeAnswer(
            200,
            "Thank you. The server has received " + std::to_string(request.strBody.size()) + " bytes of " +
                request.Header("Content-Type") + Route(request) + ":\n" + request.strBody + "\n",
            "Content-Type: text/plain; charset=utf-8\r\n"));
    }
    else if (request.strTarget == "/report")
    {
        connection.Trickle(MakeAnswer(200, report), kReportPiece, kReportPauseMs);
    }
    else
    {
        connection.Send(MakeAnswer(404, "There is no such page.\n"));
    }
}

void WaitForEndOfInput()
{
    const HANDLE hInput = GetStdHandle(STD_INPUT_HANDLE);
    char byte = 0;
    DWORD dwRead = 0;
    while (ReadFile(hInput, &byte, 1, &dwRead, nullptr) && dwRead == 1)
    {
    }
}

}  // namespace

int main()
{
    const std::string report = MakeBytes(kReportSize);
    CLoopbackServer server([&report](const CLoopbackRequest& request, CLoopbackConnection& connection)
                           { Answer(request, connection, report); });
    std::printf("%d %s\n", int{server.Port()}, Sha256(report).c_str());
    std::fflush(stdout);
    WaitForEndOfInput();
    return 0;
}
