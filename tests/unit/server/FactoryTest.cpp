#include "server/Factory.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "kvHttp/HttpRaw.h"
#include "server/ComponentTable.h"
#include "support/FailingHeap.h"
#include "unit/server/Vtable.h"

namespace
{

using testing::ElementsAre;

// What the factory does with the component, and what the component answers.
struct Script
{
    std::vector<std::string> log;
    HRESULT hrCreate = S_OK;
    HRESULT hrInit = S_OK;
    bool bNoMemory = false;
    IUnknown* pOuterSeen = nullptr;
};
Script* g_pScript = nullptr;

class CComponent : public CUnknown
{
public:
    CComponent() : CUnknown(nullptr) {}
    ~CComponent() override { g_pScript->log.push_back("destructor"); }

    HRESULT STDMETHODCALLTYPE NondelegatingQueryInterface(REFIID riid, void** ppv) override
    {
        g_pScript->log.push_back("QueryInterface");
        return CUnknown::NondelegatingQueryInterface(riid, ppv);
    }
    ULONG STDMETHODCALLTYPE NondelegatingRelease() override
    {
        g_pScript->log.push_back("Release");
        return CUnknown::NondelegatingRelease();
    }
    HRESULT Init() override
    {
        g_pScript->log.push_back("Init");
        return g_pScript->hrInit;
    }
};

HRESULT ScriptedCreate(IUnknown* pUnknownOuter, CUnknown** ppNewComponent)
{
    g_pScript->log.push_back("create");
    g_pScript->pOuterSeen = pUnknownOuter;
    if (FAILED(g_pScript->hrCreate))
    {
        return g_pScript->hrCreate;
    }
    *ppNewComponent = g_pScript->bNoMemory ? nullptr : new CComponent;
    return g_pScript->hrCreate;
}

class FactoryTest : public testing::Test
{
protected:
    FactoryTest() { g_pScript = &m_script; }
    ~FactoryTest() override
    {
        EXPECT_EQ(m_pFactory->Release(), 0u);
        EXPECT_EQ(g_cComponents, 0) << "a component was left behind";
        g_pScript = nullptr;
    }

    // The factory's face stands in for an outer object: it is an IUnknown, and nothing calls it.
    IUnknown* Outer() { return m_pFactory; }

    int m_sentinel = 0;
    void* m_pResult = &m_sentinel;
    Script m_script;
    const CFactoryData m_row = {&CLSID_HttpRaw, ScriptedCreate, L"friendly", L"prog", L"independent"};
    CFactory* m_pFactory = new CFactory(&m_row);
};

TEST_F(FactoryTest, CountsItsReferencesFromOne)
{
    EXPECT_EQ(m_pFactory->AddRef(), 2u);
    EXPECT_EQ(m_pFactory->AddRef(), 3u);
    EXPECT_EQ(m_pFactory->Release(), 2u);
    EXPECT_EQ(m_pFactory->Release(), 1u);
}

TEST_F(FactoryTest, AnswersIUnknownAndIClassFactoryWithItself)
{
    for (const IID* pIid : {&IID_IUnknown, &IID_IClassFactory})
    {
        m_pResult = nullptr;
        EXPECT_EQ(m_pFactory->QueryInterface(*pIid, &m_pResult), S_OK);
        EXPECT_EQ(m_pResult, m_pFactory);
        EXPECT_EQ(m_pFactory->Release(), 1u);
    }
}

TEST_F(FactoryTest, StoresNullForAnyOtherInterface)
{
    EXPECT_EQ(m_pFactory->QueryInterface(IID_IHttpRaw, &m_pResult), E_NOINTERFACE);
    EXPECT_EQ(m_pResult, nullptr);
}

TEST_F(FactoryTest, WantsAPlaceForTheInterface)
{
    EXPECT_EQ(m_pFactory->QueryInterface(IID_IUnknown, nullptr), E_INVALIDARG);
}

TEST_F(FactoryTest, HasTheSlotsOfIClassFactory)
{
    IClassFactory* pFace = m_pFactory;
    EXPECT_EQ(CallSlot(pFace, 0, &IID_IClassFactory, &m_pResult), S_OK);
    EXPECT_EQ(CallSlot<ULONG>(pFace, 1), 3u);
    EXPECT_EQ(CallSlot<ULONG>(pFace, 2), 2u);
    EXPECT_EQ(CallSlot<ULONG>(pFace, 2), 1u);
    m_script.hrCreate = E_ABORT;
    EXPECT_EQ(CallSlot(pFace, 3, static_cast<IUnknown*>(nullptr), &IID_IUnknown, &m_pResult), E_ABORT);
    EXPECT_EQ(CallSlot(pFace, 4, TRUE), S_OK);
    EXPECT_EQ(g_cServerLocks, 1);
    EXPECT_EQ(CallSlot(pFace, 4, FALSE), S_OK);
}

TEST_F(FactoryTest, CreatesInitialisesAsksAndDropsItsOwnReference)
{
    EXPECT_EQ(m_pFactory->CreateInstance(nullptr, IID_IUnknown, &m_pResult), S_OK);
    EXPECT_THAT(m_script.log, ElementsAre("create", "Init", "QueryInterface", "Release"));
    ASSERT_NE(m_pResult, &m_sentinel);
    EXPECT_EQ(static_cast<IUnknown*>(m_pResult)->Release(), 0u) << "the caller held the only reference";
}

TEST_F(FactoryTest, RefusesAnOuterObjectThatAsksForMoreThanIUnknown)
{
    EXPECT_EQ(m_pFactory->CreateInstance(Outer(), IID_IHttpRaw, &m_pResult), CLASS_E_NOAGGREGATION);
    EXPECT_THAT(m_script.log, ElementsAre());
    EXPECT_EQ(m_pResult, &m_sentinel);
}

TEST_F(FactoryTest, HandsAnOuterObjectThatAsksForIUnknownToTheCreateFunction)
{
    m_script.hrCreate = CLASS_E_NOAGGREGATION;
    EXPECT_EQ(m_pFactory->CreateInstance(Outer(), IID_IUnknown, &m_pResult), CLASS_E_NOAGGREGATION);
    EXPECT_THAT(m_script.log, ElementsAre("create"));
    EXPECT_EQ(m_script.pOuterSeen, Outer());
    EXPECT_EQ(m_pResult, &m_sentinel);
}

TEST_F(FactoryTest, ReturnsTheFailureOfTheCreateFunctionUnchanged)
{
    m_script.hrCreate = HRESULT_FROM_WIN32(ERROR_DISK_FULL);
    EXPECT_EQ(m_pFactory->CreateInstance(nullptr, IID_IUnknown, &m_pResult),
              HRESULT_FROM_WIN32(ERROR_DISK_FULL));
    EXPECT_EQ(m_pResult, &m_sentinel);
}

TEST_F(FactoryTest, SaysOutOfMemoryWhenTheCreateFunctionMadeNothing)
{
    m_script.bNoMemory = true;
    EXPECT_EQ(m_pFactory->CreateInstance(nullptr, IID_IUnknown, &m_pResult), E_OUTOFMEMORY);
    EXPECT_EQ(m_pResult, &m_sentinel);
}

TEST_F(FactoryTest, DestroysAComponentThatCannotBeInitialised)
{
    m_script.hrInit = E_ACCESSDENIED;
    EXPECT_EQ(m_pFactory->CreateInstance(nullptr, IID_IUnknown, &m_pResult), E_ACCESSDENIED);
    EXPECT_THAT(m_script.log, ElementsAre("create", "Init", "Release", "destructor"));
    EXPECT_EQ(m_pResult, &m_sentinel) << "written without an interface query";
}

TEST_F(FactoryTest, DestroysAComponentThatLacksTheInterface)
{
    EXPECT_EQ(m_pFactory->CreateInstance(nullptr, IID_IClassFactory, &m_pResult), E_NOINTERFACE);
    EXPECT_THAT(m_script.log, ElementsAre("create", "Init", "QueryInterface", "Release", "destructor"));
    EXPECT_EQ(m_pResult, nullptr);
}

TEST_F(FactoryTest, GoesOnAfterAnyOtherSuccessOfInit)
{
    m_script.hrInit = S_FALSE;
    EXPECT_EQ(m_pFactory->CreateInstance(nullptr, IID_IUnknown, &m_pResult), S_OK);
    static_cast<IUnknown*>(m_pResult)->Release();
}

TEST_F(FactoryTest, CountsServerLocksBothWays)
{
    EXPECT_EQ(m_pFactory->LockServer(2), S_OK);  // any nonzero value locks
    EXPECT_EQ(m_pFactory->LockServer(TRUE), S_OK);
    EXPECT_EQ(g_cServerLocks, 2);
    EXPECT_EQ(m_pFactory->LockServer(FALSE), S_OK);
    EXPECT_EQ(m_pFactory->LockServer(FALSE), S_OK);
    EXPECT_EQ(m_pFactory->LockServer(FALSE), S_OK);
    EXPECT_EQ(g_cServerLocks, -1);
    g_cServerLocks = 0;
}

TEST_F(FactoryTest, DoesNotCountAsAComponent)
{
    EXPECT_EQ(g_cComponents, 0);
}

TEST(ComponentTableTest, HasOneRow)
{
    ASSERT_EQ(std::size(g_FactoryDataArray), 1u);
    const CFactoryData& row = g_FactoryDataArray[0];
    const CLSID clsid = {0x6F2A1C3E, 0x5B7D, 0x4E21, {0x9A, 0x0C, 0x3D, 0x8E, 0x47, 0xB1, 0xF5, 0xA2}};
    EXPECT_TRUE(IsEqualCLSID(*row.pClsid, clsid));
    EXPECT_STREQ(row.pszFriendlyName, L"Kestrin.Desktop.HttpRaw.0");
    EXPECT_STREQ(row.pszProgId, L"HttpRaw 0.0.0.3");
    EXPECT_STREQ(row.pszVersionIndependentProgId, L"HttpRaw 0.0.0");
}

TEST(ComponentTableTest, CreatesTheHttpComponent)
{
    CUnknown* pComponent = nullptr;
    ASSERT_EQ(g_FactoryDataArray[0].pfnCreate(nullptr, &pComponent), S_OK);
    ASSERT_NE(pComponent, nullptr);
    void* pFace = nullptr;
    EXPECT_EQ(pComponent->NondelegatingQueryInterface(IID_IHttpRaw, &pFace), S_OK);
    EXPECT_EQ(pComponent->NondelegatingRelease(), 1u);
    EXPECT_EQ(pComponent->NondelegatingRelease(), 0u);
}

// Changes one byte of a row's identifier: the whole identifier is compared.
class GetClassObjectByteTest : public testing::TestWithParam<size_t>
{
};

TEST_P(GetClassObjectByteTest, DoesNotKnowAnIdentifierThatDiffersInOneByte)
{
    CLSID clsid = CLSID_HttpRaw;
    reinterpret_cast<BYTE*>(&clsid)[GetParam()] ^= 1;
    int sentinel = 0;
    void* pResult = &sentinel;
    EXPECT_EQ(GetClassObject(clsid, IID_IClassFactory, &pResult), CLASS_E_CLASSNOTAVAILABLE);
    EXPECT_EQ(pResult, &sentinel);
}

INSTANTIATE_TEST_SUITE_P(Bytes, GetClassObjectByteTest, testing::Range<size_t>(0, sizeof(CLSID)));

TEST(GetClassObjectTest, SaysOutOfMemoryWhenThereIsNoneForTheFactory)
{
    int sentinel = 0;
    void* pResult = &sentinel;
    const CFailingHeap memory(1, 1);
    EXPECT_EQ(GetClassObject(CLSID_HttpRaw, IID_IClassFactory, &pResult), E_OUTOFMEMORY);
    EXPECT_EQ(memory.Refusals(), 1);
    EXPECT_EQ(pResult, &sentinel);
}

}  // namespace
