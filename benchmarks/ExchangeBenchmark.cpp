// Measures the component against the same platform calls made by hand, in turns in one run and against
// one server on loopback; how long PostRequest keeps its caller; and the percent-encoding.
#include <windows.h>
#include <winsock2.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "BareExchange.h"
#include "base/StringEx.h"
#include "base/UrlEncoding.h"
#include "kvHttp/HttpRaw.h"
#include "support/loopback/LoopbackServer.h"

namespace
{

constexpr int kWarmUps = 20;
constexpr int kExchanges = 500;
constexpr size_t kFormLength = 1024;
constexpr int kEncodedLength = 10 * 1024 * 1024;
constexpr int kEncodings = 5;
constexpr char kAnswer[] = "a small answer";

[[noreturn]] void Fail(const char* pszWhat)
{
    std::printf("ExchangeBenchmark: %s\n", pszWhat);
    std::fflush(stdout);
    std::_Exit(1);
}

// In milliseconds.
double Measure(const std::function<void()>& work)
{
    LARGE_INTEGER frequency = {};
    LARGE_INTEGER begin = {};
    LARGE_INTEGER end = {};
    QueryPerformanceFrequency(&frequency);
    QueryPerformanceCounter(&begin);
    work();
    QueryPerformanceCounter(&end);
    return static_cast<double>(end.QuadPart - begin.QuadPart) * 1000.0 /
           static_cast<double>(frequency.QuadPart);
}

double Percentile(std::vector<double> values, size_t percent)
{
    std::sort(values.begin(), values.end());
    return values[std::min(values.size() - 1, values.size() * percent / 100)];
}

IHttpRaw* CreateComponent()
{
    wchar_t szPath[MAX_PATH] = {};
    GetModuleFileNameW(nullptr, szPath, MAX_PATH);
    std::wstring path(szPath);
    path.replace(path.rfind(L'\\') + 1, std::wstring::npos, L"kvHttp.dll");
    const HMODULE hModule = LoadLibraryW(path.c_str());
    if (hModule == nullptr)
    {
        Fail("kvHttp.dll is not beside this program");
    }
    using GetClassObjectProc = HRESULT(STDAPICALLTYPE*)(REFCLSID, REFIID, void**);
    const auto getClassObject = reinterpret_cast<GetClassObjectProc>(
        reinterpret_cast<void*>(GetProcAddress(hModule, "DllGetClassObject")));
    void* pFactory = nullptr;
    void* pHttpRaw = nullptr;
    if (FAILED(getClassObject(CLSID_HttpRaw, IID_IClassFactory, &pFactory)) ||
        FAILED(static_cast<IClassFactory*>(pFactory)->CreateInstance(nullptr, IID_IHttpRaw, &pHttpRaw)))
    {
        Fail("the component cannot be created");
    }
    static_cast<IClassFactory*>(pFactory)->Release();
    return static_cast<IHttpRaw*>(pHttpRaw);
}

void AwaitEnd(IHttpRaw* pHttpRaw)
{
    unsigned long status = REQ_STATUS_SENDING;
    while (status == REQ_STATUS_SENDING || status == REQ_STATUS_RECEIVING)
    {
        SwitchToThread();
        pHttpRaw->GetRequestStatus(&status);
    }
    if (status != REQ_STATUS_DONE)
    {
        Fail("an exchange of the component failed");
    }
}

void MeasureExchanges()
{
    CLoopbackServer server([](const CLoopbackRequest&, CLoopbackConnection& connection)
                           { connection.Send(MakeAnswer(200, kAnswer)); });
    const std::string form(kFormLength, 'x');
    const std::wstring wideForm(kFormLength, L'x');
    const std::wstring url = server.Url(L"/");
    CBareExchange bare(server.Port());
    IHttpRaw* const pHttpRaw = CreateComponent();
    std::vector<double> componentTimes;
    std::vector<double> bareTimes;
    std::vector<double> postTimes;
    for (int round = -kWarmUps; round < kExchanges; ++round)
    {
        std::string answer;
        const double bareTime = Measure([&] { answer = bare.Post(form); });
        if (answer != kAnswer)
        {
            Fail("an exchange by hand failed");
        }
        double postTime = 0;
        const double componentTime = Measure(
            [&]
            {
                postTime = Measure([&] { pHttpRaw->PostRequest(url.c_str(), wideForm.c_str()); });
                AwaitEnd(pHttpRaw);
            });
        if (round >= 0)
        {
            bareTimes.push_back(bareTime);
            componentTimes.push_back(componentTime);
            postTimes.push_back(postTime);
        }
    }
    pHttpRaw->Release();

    std::printf("%d exchanges in turns, a form of %d bytes, times in ms\n", kExchanges, int{kFormLength});
    std::printf("                      median   99th percentile\n");
    for (const auto& [pszName, times] :
         {std::pair("the component", &componentTimes), std::pair("WinINet by hand", &bareTimes)})
    {
        std::printf("%-18s %9.3f %17.3f\n", pszName, Percentile(*times, 50), Percentile(*times, 99));
    }
    std::printf("%-18s %9.3f %17.3f\n", "ratio", Percentile(componentTimes, 50) / Percentile(bareTimes, 50),
                Percentile(componentTimes, 99) / Percentile(bareTimes, 99));
    std::printf("PostRequest returns after %.3f ms (median), %.3f ms (99th percentile), %.3f ms (maximum)\n",
                Percentile(postTimes, 50), Percentile(postTimes, 99), Percentile(postTimes, 100));
}

void MeasureEncoding()
{
    const std::wstring text(static_cast<size_t>(kEncodedLength), L'x');
    std::vector<double> times;
    for (int round = 0; round < kEncodings; ++round)
    {
        CStringEx encoded(text.c_str());
        times.push_back(Measure([&] { EncodeURL(encoded); }));
        if (encoded.GetLength() != 3 * kEncodedLength)
        {
            Fail("the encoding failed");
        }
    }
    std::printf("%d MB of form data percent-encoded in %.1f ms (median of %d)\n",
                kEncodedLength / 1024 / 1024, Percentile(times, 50), kEncodings);
}

}  // namespace

int main()
{
    MeasureExchanges();
    MeasureEncoding();
    return 0;
}
