// Posts whose texts find no memory, each at the place where it is copied: an error, and nothing is sent.
#include "module/HttpRawTest.h"
#include "support/FailingHeap.h"

namespace
{

using testing::ElementsAre;
using testing::IsEmpty;

size_t BlockOf(const std::wstring& text)
{
    return (text.size() + 1) * sizeof(wchar_t);
}

class HttpRawMemoryTest : public HttpRawTest
{
protected:
    void ExpectRefused(HRESULT hr)
    {
        EXPECT_EQ(hr, E_FAIL);
        EXPECT_THAT(Select(CALL_TRACE, "8|"), ElementsAre("8| Out of memory,\n"));
        EXPECT_THAT(m_journal.Texts(CALL_THREAD), IsEmpty());
        EXPECT_EQ(Status(), 1u);
    }
};

TEST_F(HttpRawMemoryTest, PostUrlNeedsItForTheUrl)
{
    const std::wstring url = L"http://127.0.0.1/p?" + std::wstring(700, L'd');
    HRESULT hr = S_OK;
    {
        const CFailingHeap memory({BlockOf(url)}, m_pModule->Handle());
        hr = m_pHttpRaw->PostUrl(url.c_str());
    }
    ExpectRefused(hr);
}

TEST_F(HttpRawMemoryTest, PostUrlNeedsItForTheQuery)
{
    const std::wstring data(700, L'd');
    HRESULT hr = S_OK;
    {
        const CFailingHeap memory({BlockOf(data)}, m_pModule->Handle());
        hr = m_pHttpRaw->PostUrl((L"http://127.0.0.1/p?" + data).c_str());
    }
    ExpectRefused(hr);
}

// The exchange has a copy of each setting.
TEST_F(HttpRawMemoryTest, PostNeedsItForTheFileNameOfTheExchange)
{
    const std::wstring path(700, L'p');
    EXPECT_EQ(m_pHttpRaw->SetDownloadFile(path.c_str()), S_OK);
    HRESULT hr = S_OK;
    {
        const CFailingHeap memory({BlockOf(path)}, m_pModule->Handle());
        hr = StartPost();
    }
    ExpectRefused(hr);
}

}  // namespace
