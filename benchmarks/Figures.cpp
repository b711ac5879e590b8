#include "Figures.h"

#include <wininet.h>

#include <cstdlib>
#include <cstring>

#include "base/StringEx.h"
#include "base/UrlEncoding.h"

namespace
{

constexpr int kObjects = 100;
constexpr size_t kMB = 1048576;
constexpr size_t kChunk = 16384;

std::wstring AnswerUrl(const std::wstring& server, int megabytes)
{
    return server + L"/" + std::to_wstring(static_cast<size_t>(megabytes) * kMB);
}

}  // namespace

void MeasureLoading(CRecord& record, int count, const std::wstring& module)
{
    for (int i = 0; i < count; ++i)
    {
        const double time = Measure([&] { const CModule loaded(module); });
        record.Add({"figure", "load and unload"}, {time});
    }
}

void MeasureCalls(CRecord& record, int count, const CModule& module, const CTask& small)
{
    for (int i = 0; i < count; ++i)
    {
        const double life = Measure(
            [&]
            {
                for (int object = 0; object < kObjects; ++object)
                {
                    module.Create()->Release();
                }
            });
        record.Add({"figure", "create and release"}, {life / kObjects});
    }
    CComponentPoster poster(module);
    for (int i = -1; i < count; ++i)
    {
        const double start = Measure([&] { poster.Start(small); });
        while (!poster.HasEnded())
        {
            SwitchToThread();
        }
        poster.TakeAnswer(small);
        if (!poster.HasAnswer(small))
        {
            throw CFailure("the component has failed");
        }
        if (i >= 0)
        {
            record.Add({"figure", "PostRequest"}, {start});
        }
    }
    for (int i = 0; i < count; ++i)
    {
        DWORD dwState = 0;
        record.Add({"figure", "InternetGetConnectedState"},
                   {Measure([&] { InternetGetConnectedState(&dwState, 0); })});
    }
}

void MeasureEncoding(CRecord& record, int count, int millions)
{
    const std::wstring text(static_cast<size_t>(millions) * 1000000, L'x');
    for (int i = 0; i < count; ++i)
    {
        CStringEx encoded(text.c_str());
        const double time = Measure([&] { EncodeURL(encoded); });
        if (encoded.GetLength() != 3 * millions * 1000000)
        {
            throw CFailure("the encoding has failed");
        }
        record.Add({"figure", "encode 1 MB"}, {time / millions});
    }
}

void MeasureTextCalls(CRecord& record, int count)
{
    const auto measure = [&](const char* pszName, const std::function<void()>& work)
    {
        for (int i = 0; i < count; ++i)
        {
            record.Add({"figure", pszName}, {Measure(work)});
        }
    };
    const std::wstring answer(kMB, L'x');
    const std::wstring form(10 * kMB, L'x');
    const BSTR bstrAnswer = SysAllocString(answer.c_str());
    measure("grow a block to 1 MB by 16 KB",
            []
            {
                void* pBlock = nullptr;
                for (size_t cb = kChunk; cb <= kMB; cb += kChunk)
                {
                    pBlock = std::realloc(pBlock, cb + 1);
                    std::memset(static_cast<char*>(pBlock) + cb - kChunk, 'x', kChunk);
                }
                std::free(pBlock);
            });
    measure("SysAllocString of 1 MB", [&] { SysFreeString(SysAllocString(answer.c_str())); });
    measure("SysAllocStringByteLen of 1 MB",
            [&]
            {
                SysFreeString(SysAllocStringByteLen(reinterpret_cast<const char*>(bstrAnswer),
                                                    SysStringByteLen(bstrAnswer)));
            });
    measure("copy a form of 10 MB", [&] { const std::wstring copy(form); });
    SysFreeString(bstrAnswer);
}

void MeasureGrowth(CRecord& record, CPeakMemory& memory, int largestMB, const CClient& client,
                   const std::wstring& server)
{
    for (int megabytes = 1; megabytes <= largestMB; megabytes *= 4)
    {
        const std::string name = client.name + ", text of " + std::to_string(megabytes) + " MB";
        const CTask task =
            MakeTask(AnswerUrl(server, megabytes), 16, PreparedText(static_cast<size_t>(megabytes) * kMB));
        const std::unique_ptr<CPoster> pPoster = client.make(false);
        const bool bMemory = memory.Reset();
        const double time = TimeExchange(record, client, *pPoster, task);
        record.Add({"figure", name + ", ms"}, {time});
        if (bMemory)
        {
            record.Add({"figure", name + ", KB"}, {memory.Growth()});
        }
    }
}

void MeasureFileMemory(CRecord& record, CPeakMemory& memory, int largestMB, const CClient& client,
                       const std::wstring& server, const std::wstring& file)
{
    // The first one is for what the process has for good.
    for (const int megabytes : {1, 1, largestMB})
    {
        CTask task = MakeTask(AnswerUrl(server, megabytes), 16, "");
        task.file = file;
        const std::unique_ptr<CPoster> pPoster = client.make(false);
        const bool bMemory = memory.Reset();
        TimeExchange(record, client, *pPoster, task);
        if (!IsPreparedFile(file, megabytes * static_cast<long long>(kMB)))
        {
            throw CFailure("the file is not the expected one");
        }
        if (bMemory)
        {
            record.Add({"figure", "file of " + std::to_string(megabytes) + " MB, KB"}, {memory.Growth()});
        }
    }
}
