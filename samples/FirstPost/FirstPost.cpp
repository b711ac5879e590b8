// The shortest host: posts a form and prints the answer.
#include <windows.h>

#include <fcntl.h>
#include <io.h>
#include <shellapi.h>

#include <cstdio>
#include <cwchar>

#include "kvHttp/Client.h"

int main()
{
    int count = 0;
    wchar_t** const ppszArguments = CommandLineToArgvW(GetCommandLineW(), &count);
    if (count != 3)
    {
        std::wprintf(L"usage: FirstPost URL DATA\n");
        return 2;
    }
    _setmode(_fileno(stdout), _O_U8TEXT);  // answers are in every script
    kvHttp::CClient client;
    const kvHttp::Answer answer = client.Post(ppszArguments[1], ppszArguments[2]);
    std::wprintf(L"%ls\n", answer ? answer.strText.c_str() : answer.Reason());
    return answer ? 0 : 1;
}
