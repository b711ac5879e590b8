// Handing the answer to the owner.
#include "unit/request/RequestTest.h"

#include <comdef.h>

#include "support/FailingHeap.h"

namespace
{

int g_freed = 0;
UINT g_cbAsked = 0;
const CImportPatch* g_pFree = nullptr;

BSTR WINAPI NoString(const OLECHAR*)
{
    return nullptr;
}

BSTR WINAPI NoByteString(LPCSTR, UINT cb)
{
    g_cbAsked = cb;
    return nullptr;
}

void WINAPI CountFreed(BSTR bstr)
{
    g_freed += bstr != nullptr;
    g_pFree->Original<void WINAPI(BSTR)>()(bstr);
}

class HttpRequestResponseTest : public RequestTest
{
protected:
    HttpRequestResponseTest() { g_freed = 0; }

    void Receive(const std::vector<std::string>& pieces)
    {
        for (const std::string& piece : pieces)
        {
            m_winInet.m_reads.Then({piece});
        }
        m_pRequest->SetUrl(L"http://host/", L"x");
        RunExchange();
        ASSERT_EQ(Status(), 9ul);
    }

    wchar_t m_sentinel[1] = {};
    BSTR m_bstr = m_sentinel;
};

TEST_F(HttpRequestResponseTest, FailsBeforeAnythingWasSent)
{
    EXPECT_EQ(m_pRequest->GetResponse(&m_bstr), E_FAIL);
    EXPECT_EQ(m_bstr, m_sentinel);
    EXPECT_EQ(m_pRequest->GetResponse(nullptr), E_FAIL);
}

TEST_F(HttpRequestResponseTest, FailsAfterAnEmptyBody)
{
    Receive({});
    EXPECT_EQ(m_pRequest->GetResponse(&m_bstr), E_FAIL);
    EXPECT_EQ(m_bstr, m_sentinel);
}

TEST_F(HttpRequestResponseTest, DecodesTheBodyFromUtf8)
{
    Receive({"a\xC3", "\xA4", "\xE2\x82\xAC", "\xF0\x9F\x98\x80z"});
    ASSERT_EQ(m_pRequest->GetResponse(&m_bstr), S_OK);
    EXPECT_STREQ(m_bstr, L"a\u00E4\u20AC\xD83D\xDE00z");
    EXPECT_EQ(SysStringByteLen(m_bstr), 12u);
    SysFreeString(m_bstr);
}

TEST_F(HttpRequestResponseTest, EndsAtAZeroByte)
{
    Receive({std::string("ab\0cd", 5)});
    ASSERT_EQ(m_pRequest->GetResponse(&m_bstr), S_OK);
    EXPECT_STREQ(m_bstr, L"ab");
    EXPECT_EQ(SysStringLen(m_bstr), 2u);
    SysFreeString(m_bstr);
}

TEST_F(HttpRequestResponseTest, GivesAFreshTextAtEveryCall)
{
    Receive({"text"});
    BSTR bstrSecond = nullptr;
    ASSERT_EQ(m_pRequest->GetResponse(&m_bstr), S_OK);
    ASSERT_EQ(m_pRequest->GetResponse(&bstrSecond), S_OK);
    EXPECT_NE(m_bstr, bstrSecond);
    EXPECT_STREQ(m_bstr, bstrSecond);
    SysFreeString(m_bstr);
    SysFreeString(bstrSecond);
}

TEST_F(HttpRequestResponseTest, SucceedsWithoutAnOutput)
{
    Receive({"text"});
    EXPECT_EQ(m_pRequest->GetResponse(nullptr), S_OK);
}

TEST_F(HttpRequestResponseTest, FreesItsTemporary)
{
    Receive({"text"});
    const CImportPatch free(GetModuleHandleW(nullptr), "SysFreeString", CountFreed);
    g_pFree = &free;
    EXPECT_EQ(m_pRequest->GetResponse(nullptr), S_OK);
    EXPECT_EQ(g_freed, 1);
    EXPECT_EQ(m_pRequest->GetResponse(&m_bstr), S_OK);
    EXPECT_EQ(g_freed, 2);
    SysFreeString(m_bstr);
}

TEST_F(HttpRequestResponseTest, RaisesOutOfMemoryForTheText)
{
    Receive({"text"});
    const CImportPatch allocate(GetModuleHandleW(nullptr), "SysAllocString", NoString);
    try
    {
        m_pRequest->GetResponse(&m_bstr);
        FAIL() << "nothing was raised";
    }
    catch (const _com_error& error)
    {
        EXPECT_EQ(error.Error(), E_OUTOFMEMORY);
    }
    EXPECT_EQ(m_bstr, m_sentinel);
}

TEST_F(HttpRequestResponseTest, RaisesOutOfMemoryForTheConversion)
{
    constexpr size_t kLength = 12345;
    Receive({std::string(kLength, 'x')});
    const CFailingHeap memory{(kLength + 2) * sizeof(wchar_t)};  // with room for a terminator of our own
    HRESULT hr = S_OK;
    try
    {
        hr = m_pRequest->GetResponse(&m_bstr);
    }
    catch (const _com_error& error)
    {
        hr = error.Error();
    }
    EXPECT_EQ(hr, E_OUTOFMEMORY);
    EXPECT_EQ(memory.Refusals(), 1);
    EXPECT_EQ(m_bstr, m_sentinel);
}

TEST_F(HttpRequestResponseTest, RaisesOutOfMemoryForTheCopyAndFreesItsTemporary)
{
    Receive({"text"});
    const CImportPatch allocate(GetModuleHandleW(nullptr), "SysAllocStringByteLen", NoByteString);
    const CImportPatch free(GetModuleHandleW(nullptr), "SysFreeString", CountFreed);
    g_pFree = &free;
    EXPECT_THROW(m_pRequest->GetResponse(&m_bstr), _com_error);
    EXPECT_EQ(g_cbAsked, 8u);
    EXPECT_EQ(g_freed, 1);
    EXPECT_EQ(m_bstr, m_sentinel);
}

}  // namespace
