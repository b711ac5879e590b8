// What a host does with the helper alone. Compiled once for each compiler, language version and set of
// definitions that hosts have.
#include <kvHttp/Client.h>

#include <algorithm>
#include <cstdio>

int KVHTTP_CLIENT_HOST()
{
    kvHttp::CClient client(L"kvHttp.dll");
    client.SetDeadline(std::chrono::seconds(5));
    client.OnChange([](const kvHttp::Progress& progress) { std::printf("%lu\n", progress.nStatus); });
    const kvHttp::Answer answer = client.Post(L"http://127.0.0.1:8080/form", L"name=value");
    std::printf("%ls\n", answer ? answer.strText.c_str() : answer.Reason());
    return client.PostForBytes(L"http://127.0.0.1:8080/form", L"name=value").strBytes.empty() ? 1 : 0;
}
