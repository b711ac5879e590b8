// A console host: creates the component, posts a form, shows what happens, prints the answer, and then,
// when a file is named, takes a second answer into it.
#include <windows.h>

#include <cwchar>
#include <optional>
#include <string>

#include "Checksum.h"
#include "Exchange.h"
#include "kvHttp/HttpRaw.h"
#include "Options.h"
#include "Output.h"

namespace
{

enum ExitCode
{
    EXIT_GOOD = 0,
    EXIT_EXCHANGE_FAILED = 1,
    EXIT_USAGE = 2,
    EXIT_NO_COMPONENT = 3
};

class CComApartment
{
public:
    CComApartment() : m_hr(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED)) {}
    ~CComApartment()
    {
        if (SUCCEEDED(m_hr))
        {
            CoUninitialize();
        }
    }
    CComApartment(const CComApartment&) = delete;
    CComApartment& operator=(const CComApartment&) = delete;

private:
    HRESULT m_hr;
};

class CHttpRawPointer
{
public:
    CHttpRawPointer()
    {
        void* pHttpRaw = nullptr;
        m_hr = CoCreateInstance(CLSID_HttpRaw, nullptr, CLSCTX_INPROC_SERVER, IID_IHttpRaw, &pHttpRaw);
        m_pHttpRaw = static_cast<IHttpRaw*>(pHttpRaw);
    }
    ~CHttpRawPointer()
    {
        if (m_pHttpRaw != nullptr)
        {
            m_pHttpRaw->Release();
        }
    }
    CHttpRawPointer(const CHttpRawPointer&) = delete;
    CHttpRawPointer& operator=(const CHttpRawPointer&) = delete;

    IHttpRaw* Get() const { return m_pHttpRaw; }
    HRESULT Result() const { return m_hr; }

private:
    HRESULT m_hr = E_FAIL;
    IHttpRaw* m_pHttpRaw = nullptr;
};

// An answer with a byte that ends text is cut there; an empty one counts as none.
std::wstring TakeAnswer(IHttpRaw* pHttpRaw)
{
    BSTR bstrAnswer = nullptr;
    if (FAILED(pHttpRaw->GetResponseData(&bstrAnswer)))
    {
        return {};
    }
    std::wstring answer(bstrAnswer, SysStringLen(bstrAnswer));
    SysFreeString(bstrAnswer);
    return answer;
}

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

bool ReportFailure(unsigned long status)
{
    PrintError(L"PostForm: the exchange ended in status " + std::to_wstring(status) + L", " + NameOf(status) +
               L". " + AdviceFor(status));
    return false;
}

bool PostIntoMemory(IHttpRaw* pHttpRaw, const Options& options)
{
    Print(L"Posting to " + options.strUrl + L"\n");
    const unsigned long status = RunExchange(pHttpRaw, options.strUrl, options.strData, L"");
    if (status != REQ_STATUS_DONE)
    {
        return ReportFailure(status);
    }
    const std::wstring answer = TakeAnswer(pHttpRaw);
    PrintAnswer(answer, options.nMaxAnswer);
    if (answer.find(options.strExpectedText) == std::wstring::npos)
    {
        PrintError(L"PostForm: the answer does not contain \"" + options.strExpectedText + L"\".");
        return false;
    }
    return true;
}

bool PostIntoFile(IHttpRaw* pHttpRaw, const Options& options)
{
    const std::wstring& url = options.strFileUrl.empty() ? options.strUrl : options.strFileUrl;
    Print(L"\nPosting to " + url + L", into the file " + options.strFile + L"\n");
    const unsigned long status = RunExchange(pHttpRaw, url, options.strData, options.strFile);
    if (status != REQ_STATUS_DONE)
    {
        return ReportFailure(status);
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

int Run(const Options& options)
{
    const CComApartment apartment;
    const CHttpRawPointer httpRaw;
    if (httpRaw.Get() == nullptr)
    {
        wchar_t szResult[20] = {};
        std::swprintf(szResult, sizeof(szResult) / sizeof(szResult[0]), L"0x%08lX",
                      static_cast<unsigned long>(httpRaw.Result()));
        PrintError(std::wstring(L"PostForm: the component could not be created (") + szResult +
                   L"). Register it: regsvr32 kvHttp.dll");
        return EXIT_NO_COMPONENT;
    }
    httpRaw.Get()->SetTimeout(options.nTimeout);
    const bool bGood = PostIntoMemory(httpRaw.Get(), options) &&
                       (options.strFile.empty() || PostIntoFile(httpRaw.Get(), options));
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
