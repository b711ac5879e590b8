// The built module with the trace library beside it: one exchange, and what is in the file afterwards.
#include <gmock/gmock.h>

#include <algorithm>
#include <set>

#include "kvHttp/HttpRaw.h"
#include "support/loopback/LoopbackServer.h"
#include "system/tracelib/TracedFile.h"

using testing::AllOf;
using testing::Contains;
using testing::Each;
using testing::HasSubstr;
using testing::Not;
using testing::SizeIs;

namespace
{

using GetClassObjectProc = HRESULT(STDAPICALLTYPE*)(REFCLSID, REFIID, void**);

IHttpRaw* Create(HMODULE hModule)
{
    const auto getClassObject = reinterpret_cast<GetClassObjectProc>(
        reinterpret_cast<void*>(GetProcAddress(hModule, "DllGetClassObject")));
    IClassFactory* pFactory = nullptr;
    EXPECT_EQ(getClassObject(CLSID_HttpRaw, IID_IClassFactory, reinterpret_cast<void**>(&pFactory)), S_OK);
    IHttpRaw* pHttpRaw = nullptr;
    EXPECT_EQ(pFactory->CreateInstance(nullptr, IID_IHttpRaw, reinterpret_cast<void**>(&pHttpRaw)), S_OK);
    pFactory->Release();
    return pHttpRaw;
}

unsigned long AwaitEnd(IHttpRaw* pHttpRaw)
{
    const ULONGLONG end = GetTickCount64() + 20000;
    unsigned long status = REQ_STATUS_SENDING;
    while ((status == REQ_STATUS_SENDING || status == REQ_STATUS_RECEIVING) && GetTickCount64() < end)
    {
        MsgWaitForMultipleObjects(0, nullptr, FALSE, 5, QS_ALLINPUT);
        for (MSG msg = {}; PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE);)
        {
            DispatchMessageW(&msg);
        }
        pHttpRaw->GetRequestStatus(&status);
    }
    return status;
}

TEST(ExchangeTraceTest, ModuleLeavesItsRecordsInTheFile)
{
    CLoopbackServer server(
        [](const CLoopbackRequest&, CLoopbackConnection& connection)
        {
            connection.Stall();
            connection.Send(MakeAnswer(200, std::string(10000, 'a') + "\nend"));
        });
    CTracedFile file;
    const std::filesystem::path folder = file.Folder().Path();
    std::filesystem::copy_file(BesideThisProgram(L"kvHttp.dll"), folder / "kvHttp.dll");
    std::filesystem::copy_file(BuiltTraceLibrary(), folder / "qnztraceX64.dll");
    CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
    const HMODULE hModule = LoadLibraryW((folder / "kvHttp.dll").c_str());
    ASSERT_NE(hModule, nullptr);
    IHttpRaw* const pHttpRaw = Create(hModule);
    ASSERT_NE(pHttpRaw, nullptr);
    EXPECT_EQ(pHttpRaw->PostRequest(server.Url(L"/private").c_str(), L"secret=1"), S_OK);
    // A worker that were done before the post returned would have its last status overwritten.
    server.Release();
    EXPECT_EQ(AwaitEnd(pHttpRaw), static_cast<unsigned long>(REQ_STATUS_DONE));
    pHttpRaw->Release();
    FreeLibrary(hModule);
    CoUninitialize();

    const std::vector<std::string> texts = file.Texts();
    EXPECT_THAT(texts, Contains("Http Send request,").Times(1));
    EXPECT_THAT(texts, Contains("%73%65%63%72%65%74%3D%31,").Times(1));
    EXPECT_THAT(texts, Contains("http status code,dwHttpStatusCode=200,").Times(1));
    EXPECT_THAT(texts, Contains(std::string(10000, 'a') + "\u240Aend,").Times(1))
        << "the answer in six pieces";
    EXPECT_THAT(texts, Contains("emStatus=9,").Times(1));
    EXPECT_THAT(texts, Each(Not(HasSubstr("secret"))));
    EXPECT_THAT(texts, Contains("--> CHttpRequest::~CHttpRequest").Times(1));
    const auto entries =
        std::count_if(texts.begin(), texts.end(), [](const auto& text) { return text.starts_with("--> "); });
    const auto exits =
        std::count_if(texts.begin(), texts.end(), [](const auto& text) { return text.starts_with("<-- "); });
    EXPECT_EQ(entries, exits);
    std::set<std::string> threads;
    for (const TracedLine& line : file.Lines())
    {
        if (line.strLevel != "0")
        {
            threads.insert(line.strThread);
        }
    }
    EXPECT_THAT(threads, SizeIs(2)) << "the host's thread and the worker";
    EXPECT_EQ(file.Notes().back(), "trace ends") << "the module frees the library";
    EXPECT_EQ(GetModuleHandleW((folder / "qnztraceX64.dll").c_str()), nullptr);
}

}  // namespace
