// A host that knows the public header only, with the component registered for this process.
#include <gtest/gtest.h>

#include <objbase.h>

#include "module/com/header/PublicHeader.h"
#include "module/com/ServerModule.h"

#define HOST(function) extern "C" PublicHeaderAnswers function();
KVHTTP_HEADER_HOSTS
#undef HOST

namespace
{

// Stands for the registration: the platform asks this process first.
class CRegisteredFactory
{
public:
    CRegisteredFactory()
    {
        CoInitialize(nullptr);
        m_pFactory = m_module.CreateFactory();
        CoRegisterClassObject(CLSID_HttpRaw, m_pFactory, CLSCTX_INPROC_SERVER, REGCLS_MULTIPLEUSE,
                              &m_dwCookie);
    }
    ~CRegisteredFactory()
    {
        CoRevokeClassObject(m_dwCookie);
        m_pFactory->Release();
        EXPECT_EQ(m_module.CanUnloadNow(), S_OK);
        CoUninitialize();
    }
    CRegisteredFactory(const CRegisteredFactory&) = delete;
    CRegisteredFactory& operator=(const CRegisteredFactory&) = delete;

private:
    CServerModule m_module;
    IClassFactory* m_pFactory = nullptr;
    DWORD m_dwCookie = 0;
};

TEST(PublicHeaderTest, IsEnoughForAHostInEveryLanguageVersion)
{
    struct Row
    {
        const char* label;
        PublicHeaderAnswers (*use)();
    };
#define HOST(function) {#function, function},
    const Row rows[] = {KVHTTP_HEADER_HOSTS};
#undef HOST
    const CRegisteredFactory factory;
    for (const Row& row : rows)
    {
        SCOPED_TRACE(row.label);
        const PublicHeaderAnswers answers = row.use();
        EXPECT_EQ(answers.hrCreate, S_OK);
        EXPECT_EQ(answers.status, 1ul);
        EXPECT_TRUE(answers.bSameIdentifier);
        EXPECT_EQ(answers.hrPostRequest, E_INVALIDARG);
        EXPECT_EQ(answers.hrPostUrl, E_INVALIDARG);
        EXPECT_EQ(answers.hrResponse, E_FAIL);
        EXPECT_EQ(answers.references, 0ul);
    }
}

TEST(PublicHeaderTest, HasTheIdentifiersThatTheModuleAnswersTo)
{
    const CLSID clsid = {0x6F2A1C3E, 0x5B7D, 0x4E21, {0x9A, 0x0C, 0x3D, 0x8E, 0x47, 0xB1, 0xF5, 0xA2}};
    const IID iid = {0x4C7E2B19, 0x0D3A, 0x4F86, {0xB5, 0xE1, 0x97, 0xA2, 0xC4, 0xD8, 0xE0, 0x63}};
    EXPECT_TRUE(IsEqualCLSID(CLSID_HttpRaw, clsid));
    EXPECT_TRUE(IsEqualIID(IID_IHttpRaw, iid));
}

}  // namespace
