#include "system/dialog/CertificateHost.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>

std::wstring ServerUrl(const std::wstring& host, const std::wstring& path)
{
    const char* const port = std::getenv("KVHTTP_TLS_PORT");
    if (port == nullptr)
    {
        std::printf("DialogTest: KVHTTP_TLS_PORT is not set; dialog_run.py starts this program\n");
        std::fflush(stdout);
        std::_Exit(3);
    }
    return L"https://" + host + L":" + std::to_wstring(std::atoi(port)) + path;
}

void ExpectServed(const std::string& request)
{
    std::printf("expected at the server: %s\n", request.c_str());
    std::fflush(stdout);
}

std::wstring ProblemOf(HWND hDialog)
{
    const std::vector<std::wstring> texts = CDesktopHost::TextsOf(hDialog);
    EXPECT_EQ(texts.size(), 5u);
    return texts.size() == 5 ? texts[1] : L"";
}

std::vector<std::wstring> PostAndAnswer(CHttpRawHost& host, const std::wstring& url, WORD wControlId,
                                        const std::wstring& data)
{
    std::vector<std::wstring> problems;
    host.Post(url, data);
    HWND hDialog = nullptr;
    while ((hDialog = CDesktopHost::AwaitDialog(host, hDialog)) != nullptr && problems.size() < 20)
    {
        problems.push_back(ProblemOf(hDialog));
        CDesktopHost::Press(hDialog, wControlId);
    }
    return problems;
}
