#include "soak/SoakServer.h"

#include <cstdlib>
#include <functional>

namespace
{

constexpr char kClose[] = "Connection: close\r\n";
constexpr char kFollowed[] = "/followed?";

// The platform follows a redirect without the form: the new target carries it.
std::string FormOf(const CLoopbackRequest& request)
{
    return request.strTarget.starts_with(kFollowed) ? request.strTarget.substr(sizeof(kFollowed) - 1)
                                                    : request.strBody;
}

}  // namespace

std::string SoakAnswer(const std::string& form)
{
    const size_t lines = std::hash<std::string>()(form) % 1500;
    std::string answer;
    for (size_t line = 0; line < lines; ++line)
    {
        answer += form + " line " + std::to_string(line) + "\n";
    }
    return answer;
}

void ServeSoak(const CLoopbackRequest& request, CLoopbackConnection& connection)
{
    const std::string& target = request.strTarget;
    const std::string text = SoakAnswer(FormOf(request));
    const std::string answer = MakeAnswer(200, text, target == "/keep" ? "" : kClose);
    if (target == "/redirect")
    {
        connection.Send(
            MakeAnswer(302, "", kClose + ("Location: " + std::string(kFollowed) + request.strBody) + "\r\n"));
    }
    else if (target == "/loop")
    {
        connection.Send(MakeAnswer(302, "", kClose));
    }
    else if (target == "/reset")
    {
        connection.Reset();
    }
    else if (target == "/stall")
    {
        // Not for ever: Wine wakes nobody whose handle is closed, and each would wait for its time-out.
        connection.Pause(300);
    }
    else if (target == "/hang")
    {
        connection.Send("HTTP/1.1 200 OK\r\nContent");
        connection.Stall();
    }
    else if (target == "/slow")
    {
        connection.Pause(10);
        connection.Send(answer);
    }
    else if (target == "/halves")
    {
        connection.Send(std::string_view(answer).substr(0, answer.size() / 2));
        connection.Pause(5);
        connection.Send(std::string_view(answer).substr(answer.size() / 2));
    }
    else if (target == "/chunked")
    {
        connection.Send(MakeChunkedAnswer(text, 1000));
    }
    else if (target == "/short")
    {
        connection.Send(
            std::string_view(answer).substr(0, answer.size() - std::min<size_t>(text.size(), 10)));
        connection.Close();
    }
    else if (target.size() == 4 && target >= "/400" && target <= "/500")
    {
        connection.Send(MakeAnswer(std::atoi(target.c_str() + 1), text, kClose));
    }
    else
    {
        connection.Send(answer);
    }
    if (target != "/keep")
    {
        connection.Close();
    }
}

int SoakNumber(const char* pszVariable, int other)
{
    char text[16] = {};
    return GetEnvironmentVariableA(pszVariable, text, sizeof(text)) != 0 ? std::atoi(text) : other;
}
