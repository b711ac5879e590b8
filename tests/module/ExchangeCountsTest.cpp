// What an exchange costs, counted: never in time, which a test cannot rely on. A number that has grown needs
// a reason, one that has come down is to be written here.
#include <algorithm>
#include <cstdio>
#include <string>

#include "module/HttpRawTest.h"
#include "support/CallCounts.h"

namespace
{

constexpr size_t kChunk = 16384;
constexpr size_t kMB = 1048576;
constexpr size_t kSmallForm = 16;

struct Row
{
    const char* label;
    bool bTraced;
    size_t form;
    size_t answer;
    bool bFile;
    CCounts most;
};

void PrintTo(const Row& row, std::ostream* pStream)
{
    *pStream << row.label;
}

class ExchangeCountsTest : public HttpRawTest, public testing::WithParamInterface<Row>
{
protected:
    void Script(size_t answer)
    {
        for (; answer > 0; answer -= std::min(answer, kChunk))
        {
            m_winInet.m_reads.Then({std::string(std::min(answer, kChunk), 'x')});
        }
    }

    void Exchange(const Row& row)
    {
        Script(row.answer);
        const std::wstring form(row.form, L'x');
        m_pHttpRaw->SetDownloadFile(row.bFile ? L"C:\\answer" : L"");
        ASSERT_EQ(Post(L"http://127.0.0.1/p", form.c_str()), S_OK);
        ASSERT_EQ(Status(), 9ul);
        BSTR bstr = nullptr;
        m_pHttpRaw->GetResponseData(&bstr);
        EXPECT_EQ(SysStringLen(bstr), row.bFile ? 0 : row.answer);
        SysFreeString(bstr);
    }

    static void ExpectAtMost(const char* what, long long most, long long got)
    {
        EXPECT_LE(got, most) << what << ": expected at most " << most << ", got " << got;
    }
};

TEST_P(ExchangeCountsTest, CostsNoMore)
{
    if (!KVHTTP_SHIPPED_BUILD)
    {
        GTEST_SKIP() << "what finds errors in this build makes calls of its own";
    }
    const Row& row = GetParam();
    m_trace.m_bFound = row.bTraced;
    // What the first exchange of an object does besides is not counted here.
    Exchange({"", row.bTraced, kSmallForm, 1, false, {}});
    const CCallCounts counted(m_pModule->Handle());
    Exchange(row);
    const CCounts counts = counted.Counts();
    ExpectAtMost("platform calls", row.most.platformCalls, counts.platformCalls);
    ExpectAtMost("allocations", row.most.allocations, counts.allocations);
    ExpectAtMost("bytes allocated", row.most.bytesAllocated, counts.bytesAllocated);
    ExpectAtMost("bytes copied", row.most.bytesCopied, counts.bytesCopied);
    if (HasFailure())
    {
        std::printf("Calls by name:\n%s", counted.Text().c_str());
    }
}

INSTANTIATE_TEST_SUITE_P(
    , ExchangeCountsTest,
    testing::Values(Row{"SmallText", false, kSmallForm, 64, false, {42, 16, 614, 0}},
                    Row{"TextOf1MB", false, kSmallForm, kMB, false, {168, 79, 36176357, 34078783}},
                    Row{"FileOf1MB", false, kSmallForm, kMB, true, {166, 14, 453, 0}},
                    Row{"FormOf64KB", false, 65536, 64, false, {42, 16, 328214, 262148}},
                    Row{"TracedSmallText", true, kSmallForm, 64, false, {66, 117, 5185, 0}},
                    Row{"TracedTextOf1MB", true, kSmallForm, kMB, false, {192, 180, 41423488, 36175935}},
                    Row{"TracedFileOf1MB", true, kSmallForm, kMB, true, {192, 115, 4792, 0}},
                    Row{"TracedFormOf64KB", true, 65536, 64, false, {66, 117, 1512145, 786438}}),
    [](const auto& row) { return row.param.label; });

}  // namespace
