// A console host: posts a form, shows what happens, prints the answer, and then, when a file is named, takes
// a second answer into it.
#include <windows.h>

#include <cwchar>
#include <optional>
#include <string>

#include "Checksum.h"
#include "kvHttp/Client.h"
#include "Options.h"
#include "Output.h"
#include "Report.h"

namespace
{

enum ExitCode
{
    EXIT_GOOD = 0,
    EXIT_EXCHANGE_FAILED = 1,
    EXIT_USAGE = 2,
    EXIT_NO_COMPONENT = 3
};

void PrintAnswer(const std::wstring& answer, size_t maximum)
{
    if (answer.empty())
    {
        Print(L"The answer is empty.\n");
        return;
    }
    size_t length = answer.size() < maximum ? answer.size() : maximum;
    // Half a character is none.
    if (length < answer.size() && IS_HIGH_SURROGATE(answer[length - 1]))
    {
        --length;
    }
    Print(L"The answer, " + std::to_wstring(answer.size()) + L" characters:\n");
    Print(answer.substr(0, length));
    Print(length == 0 || answer[length - 1] != L'\n' ? L"\n" : L"");
    if (length < answer.size())
    {
        Print(L"(" + std::to_wstring(answer.size() - length) + L" more; --max-answer prints them)\n");
    }
}

bool ReportFailure(const kvHttp::Answer& answer)
{
    const std::wstring status = answer.nStatus == REQ_STATUS_IDLE
                                    ? L"nothing was sent. "
                                    : L"the exchange ended in status " + std::to_wstring(answer.nStatus) +
                                          L", " + NameOf(answer.nStatus) + L". ";
    PrintError(L"PostForm: " + status + answer.Reason());
    return false;
}

bool PostIntoMemory(kvHttp::CClient& client, const Options& options)
{
    Print(L"Posting to " + options.strUrl + L"\n");
    client.OnChange(CReport());
    const kvHttp::Answer answer = client.Post(options.strUrl, options.strData);
    if (!answer)
    {
        return ReportFailure(answer);
    }
    PrintAnswer(answer.strText, options.nMaxAnswer);
    if (answer.strText.find(options.strExpectedText) == std::wstring::npos)
    {
        PrintError(L"PostForm: the answer does not contain \"" + options.strExpectedText + L"\".");
        return false;
    }
    return true;
}

bool PostIntoFile(kvHttp::CClient& client, const Options& options)
{
    const std::wstring& url = options.strFileUrl.empty() ? options.strUrl : options.strFileUrl;
    Print(L"\nPosting to " + url + L", into the file " + options.strFile + L"\n");
    client.OnChange(CReport());
    const kvHttp::Answer answer = client.PostToFile(url, options.strData, options.strFile);
    if (!answer)
    {
        return ReportFailure(answer);
    }
    const std::optional<FileSummary> summary = SummarizeFile(options.strFile);
    if (!summary)
    {
        PrintError(L"PostForm: the file cannot be read: " + options.strFile);
        return false;
    }
    Print(L"The file has " + std::to_wstring(summary->nSize) + L" bytes, SHA-256 " + summary->strSha256 +
          L"\n");
    if (options.strExpectedSha256.empty())
    {
        return true;
    }
    if (_wcsicmp(options.strExpectedSha256.c_str(), summary->strSha256.c_str()) != 0)
    {
        PrintError(L"PostForm: the checksum should be " + options.strExpectedSha256 +
                   L": the file is not what the server sent.");
        return false;
    }
    Print(L"That is the checksum that the server told.\n");
    return true;
}

// The helper has a constructor for each way to the component; without a path it takes the registered one.
int Run(const Options& options)
{
    kvHttp::CClient client(options.strModule);
    const kvHttp::Outcome outcome = client.Open();
    if (outcome != kvHttp::Outcome::Idle)
    {
        wchar_t szResult[20] = {};
        std::swprintf(szResult, sizeof(szResult) / sizeof(szResult[0]), L"0x%08lX",
                      static_cast<unsigned long>(client.Result()));
        PrintError(std::wstring(L"PostForm: ") + Describe(outcome) + L" (" + szResult + L")");
        return EXIT_NO_COMPONENT;
    }
    client.SetTimeout(std::chrono::seconds(options.nTimeout));
    client.SetPollInterval(std::chrono::milliseconds(20));
    client.SetTraceResponse(true);
    const bool bGood =
        PostIntoMemory(client, options) && (options.strFile.empty() || PostIntoFile(client, options));
    return bGood ? EXIT_GOOD : EXIT_EXCHANGE_FAILED;
}

}  // namespace

int main()
{
    const std::optional<Options> options = ParseCommandLine();
    if (!options)
    {
        return EXIT_USAGE;
    }
    if (options->bHelp)
    {
        PrintUsage();
        return EXIT_GOOD;
    }
    return Run(*options);
}
