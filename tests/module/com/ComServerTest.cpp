// The built module as the platform and a host see it: its exports, its factory and both faces of the
// component.
#include <gtest/gtest.h>

#include <windows.h>

#include <winternl.h>

#include "module/com/ServerModule.h"
#include "support/FailingHeap.h"
#include "unit/server/Vtable.h"

namespace
{

constexpr IID kUnknownId = {0x12345678, 0x1234, 0x1234, {1, 2, 3, 4, 5, 6, 7, 8}};

class ComServerTest : public testing::Test
{
protected:
    void SetUp() override { ASSERT_NE(m_module.Handle(), nullptr) << "error " << GetLastError(); }
    void TearDown() override { EXPECT_EQ(m_module.CanUnloadNow(), S_OK) << "something was left behind"; }

    CServerModule m_module;
    int m_sentinel = 0;
    void* m_pResult = &m_sentinel;
};

TEST_F(ComServerTest, LooksAtTheInterfaceBeforeTheClass)
{
    struct Row
    {
        const char* label;
        const CLSID& clsid;
        const IID& iid;
        HRESULT expected;
    };
    const Row rows[] = {
        {"component's interface", CLSID_HttpRaw, IID_IHttpRaw, E_NOINTERFACE},
        {"unknown interface", CLSID_HttpRaw, kUnknownId, E_NOINTERFACE},
        {"unknown interface and class", kUnknownId, kUnknownId, E_NOINTERFACE},
        {"unknown class, factory", kUnknownId, IID_IClassFactory, CLASS_E_CLASSNOTAVAILABLE},
        {"unknown class, IUnknown", kUnknownId, IID_IUnknown, CLASS_E_CLASSNOTAVAILABLE},
        {"interface identifier as class", IID_IHttpRaw, IID_IClassFactory, CLASS_E_CLASSNOTAVAILABLE},
    };
    for (const Row& row : rows)
    {
        EXPECT_EQ(m_module.GetClassObject(row.clsid, row.iid, &m_pResult), row.expected) << row.label;
        EXPECT_EQ(m_pResult, &m_sentinel) << row.label;
    }
}

TEST_F(ComServerTest, MakesAFactoryWithOneReferencePerCall)
{
    IClassFactory* pFirst = m_module.CreateFactory();
    IClassFactory* pSecond = m_module.CreateFactory();
    ASSERT_NE(pFirst, nullptr);
    ASSERT_NE(pSecond, nullptr);
    EXPECT_NE(pFirst, pSecond);
    EXPECT_EQ(pFirst->AddRef(), 2u);
    EXPECT_EQ(pFirst->Release(), 1u);
    EXPECT_EQ(pFirst->Release(), 0u);
    EXPECT_EQ(m_module.GetClassObject(CLSID_HttpRaw, IID_IUnknown, &m_pResult), S_OK);
    EXPECT_EQ(static_cast<IUnknown*>(m_pResult)->Release(), 0u);
    EXPECT_EQ(pSecond->Release(), 0u);
}

TEST_F(ComServerTest, FactoryHasTheSlotsOfIClassFactory)
{
    void* pFactory = m_module.CreateFactory();
    EXPECT_EQ(CallSlot(pFactory, 0, &IID_IUnknown, &m_pResult), S_OK);
    EXPECT_EQ(m_pResult, pFactory);
    EXPECT_EQ(CallSlot<ULONG>(pFactory, 1), 3u);
    EXPECT_EQ(CallSlot<ULONG>(pFactory, 2), 2u);
    void* pComponent = nullptr;
    EXPECT_EQ(CallSlot(pFactory, 3, static_cast<IUnknown*>(nullptr), &IID_IHttpRaw, &pComponent), S_OK);
    EXPECT_EQ(CallSlot<ULONG>(pComponent, 2), 0u) << "the caller holds the only reference";
    EXPECT_EQ(CallSlot(pFactory, 4, TRUE), S_OK);
    EXPECT_EQ(m_module.CanUnloadNow(), S_FALSE);
    EXPECT_EQ(CallSlot(pFactory, 4, FALSE), S_OK);
    EXPECT_EQ(CallSlot<ULONG>(pFactory, 2), 1u);
    EXPECT_EQ(CallSlot<ULONG>(pFactory, 2), 0u);
}

TEST_F(ComServerTest, RefusesAggregation)
{
    IClassFactory* pFactory = m_module.CreateFactory();
    EXPECT_EQ(pFactory->CreateInstance(pFactory, IID_IUnknown, &m_pResult), CLASS_E_NOAGGREGATION);
    EXPECT_EQ(pFactory->CreateInstance(pFactory, IID_IHttpRaw, &m_pResult), CLASS_E_NOAGGREGATION);
    EXPECT_EQ(m_pResult, &m_sentinel);
    EXPECT_EQ(m_module.CanUnloadNow(), S_OK) << "a component was made";
    EXPECT_EQ(pFactory->Release(), 0u);
}

TEST_F(ComServerTest, DestroysAComponentThatTheCallerCannotTake)
{
    IClassFactory* pFactory = m_module.CreateFactory();
    EXPECT_EQ(pFactory->CreateInstance(nullptr, kUnknownId, &m_pResult), E_NOINTERFACE);
    EXPECT_EQ(m_pResult, nullptr);
    EXPECT_EQ(m_module.CanUnloadNow(), S_OK);
    EXPECT_EQ(pFactory->CreateInstance(nullptr, IID_IHttpRaw, nullptr), E_INVALIDARG);
    EXPECT_EQ(m_module.CanUnloadNow(), S_OK);
    pFactory->Release();
}

TEST_F(ComServerTest, SaysOutOfMemory)
{
    IClassFactory* pFactory = m_module.CreateFactory();
    {
        const CFailingHeap memory(1, 1, m_module.Handle());
        EXPECT_EQ(m_module.GetClassObject(CLSID_HttpRaw, IID_IClassFactory, &m_pResult), E_OUTOFMEMORY);
        EXPECT_EQ(memory.Refusals(), 1);
    }
    {
        const CFailingHeap memory(1, 1, m_module.Handle());
        EXPECT_EQ(pFactory->CreateInstance(nullptr, IID_IHttpRaw, &m_pResult), E_OUTOFMEMORY);
        EXPECT_EQ(memory.Refusals(), 1);
    }
    EXPECT_EQ(m_pResult, &m_sentinel);
    pFactory->Release();
}

TEST_F(ComServerTest, StaysLoadedWhileAComponentLivesOrAHostLocksIt)
{
    EXPECT_EQ(m_module.CanUnloadNow(), S_OK);
    IClassFactory* pFactory = m_module.CreateFactory();
    EXPECT_EQ(m_module.CanUnloadNow(), S_OK) << "a factory alone does not keep it";
    IHttpRaw* pFirst = m_module.CreateHttpRaw();
    IHttpRaw* pSecond = m_module.CreateHttpRaw();
    EXPECT_EQ(m_module.CanUnloadNow(), S_FALSE);
    EXPECT_EQ(pFirst->Release(), 0u);
    EXPECT_EQ(m_module.CanUnloadNow(), S_FALSE);
    EXPECT_EQ(pSecond->Release(), 0u);
    EXPECT_EQ(m_module.CanUnloadNow(), S_OK);

    pFactory->LockServer(TRUE);
    pFactory->LockServer(TRUE);
    pFactory->LockServer(FALSE);
    EXPECT_EQ(pFactory->Release(), 0u);
    EXPECT_EQ(m_module.CanUnloadNow(), S_FALSE) << "the lock outlives the factory";
    pFactory = m_module.CreateFactory();
    pFactory->LockServer(FALSE);
    pFactory->Release();
}

// The module asks for no calls at threads. The loader refuses that to a module with thread-local storage,
// which the MinGW runtime brings along; such a module is called, and does nothing then.
TEST_F(ComServerTest, WantsNoThreadNotifications)
{
    constexpr ULONG kDoNotCallForThreads = 0x00040000;
    constexpr size_t kBase = 0x30;
    constexpr size_t kFlags = 0x68;
    const auto* pImage = reinterpret_cast<const BYTE*>(m_module.Handle());
    const auto* pHeaders = reinterpret_cast<const IMAGE_NT_HEADERS64*>(
        pImage + reinterpret_cast<const IMAGE_DOS_HEADER*>(pImage)->e_lfanew);
    const bool bLocalStorage = pHeaders->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_TLS].Size != 0;

    const auto currentPeb = reinterpret_cast<PEB*(NTAPI*)()>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "RtlGetCurrentPeb")));
    ASSERT_NE(currentPeb, nullptr);
    LIST_ENTRY* pHead = &currentPeb()->Ldr->InMemoryOrderModuleList;
    for (LIST_ENTRY* pLink = pHead->Flink; pLink != pHead; pLink = pLink->Flink)
    {
        // The link in memory order is the record's second.
        const auto* pRecord = reinterpret_cast<const BYTE*>(pLink) - sizeof(LIST_ENTRY);
        if (*reinterpret_cast<const HMODULE*>(pRecord + kBase) == m_module.Handle())
        {
            const bool bQuiet =
                (*reinterpret_cast<const ULONG*>(pRecord + kFlags) & kDoNotCallForThreads) != 0;
            EXPECT_EQ(bQuiet, !bLocalStorage);
            return;
        }
    }
    FAIL() << "the loader does not know the module";
}

class HttpRawFacesTest : public ComServerTest
{
protected:
    void SetUp() override
    {
        ComServerTest::SetUp();
        m_pHttpRaw = m_module.CreateHttpRaw();
        ASSERT_NE(m_pHttpRaw, nullptr);
    }

    IHttpRaw* m_pHttpRaw = nullptr;
};

TEST_F(HttpRawFacesTest, CountOneReferenceTogether)
{
    void* pUnknown = nullptr;
    ASSERT_EQ(m_pHttpRaw->QueryInterface(IID_IUnknown, &pUnknown), S_OK);
    EXPECT_NE(pUnknown, static_cast<void*>(m_pHttpRaw));
    EXPECT_EQ(CallSlot<ULONG>(pUnknown, 1), 3u);
    EXPECT_EQ(m_pHttpRaw->AddRef(), 4u);
    EXPECT_EQ(CallSlot<ULONG>(pUnknown, 2), 3u);
    EXPECT_EQ(m_pHttpRaw->Release(), 2u);
    EXPECT_EQ(m_pHttpRaw->Release(), 1u);
    EXPECT_EQ(m_module.CanUnloadNow(), S_FALSE);
    EXPECT_EQ(CallSlot<ULONG>(pUnknown, 2), 0u);
}

TEST_F(HttpRawFacesTest, GiveOneIdentityFromEitherSide)
{
    void* pUnknown = nullptr;
    void* pAgain = nullptr;
    void* pHttpRaw = nullptr;
    ASSERT_EQ(m_pHttpRaw->QueryInterface(IID_IUnknown, &pUnknown), S_OK);
    EXPECT_EQ(CallSlot(pUnknown, 0, &IID_IUnknown, &pAgain), S_OK);
    EXPECT_EQ(pAgain, pUnknown);
    EXPECT_EQ(CallSlot(pUnknown, 0, &IID_IHttpRaw, &pHttpRaw), S_OK);
    EXPECT_EQ(pHttpRaw, static_cast<void*>(m_pHttpRaw));
    EXPECT_EQ(m_pHttpRaw->QueryInterface(IID_IHttpRaw, &pHttpRaw), S_OK);
    EXPECT_EQ(pHttpRaw, static_cast<void*>(m_pHttpRaw));
    for (ULONG expected = 5; expected-- > 0;)
    {
        EXPECT_EQ(m_pHttpRaw->Release(), expected);
    }
}

TEST_F(HttpRawFacesTest, RefuseOtherInterfacesAndNullOutputs)
{
    void* pUnknown = nullptr;
    ASSERT_EQ(m_pHttpRaw->QueryInterface(IID_IUnknown, &pUnknown), S_OK);
    for (void* pFace : {static_cast<void*>(m_pHttpRaw), pUnknown})
    {
        for (const IID* pIid : {&kUnknownId, &IID_IClassFactory, &CLSID_HttpRaw})
        {
            m_pResult = &m_sentinel;
            EXPECT_EQ(CallSlot(pFace, 0, pIid, &m_pResult), E_NOINTERFACE);
            EXPECT_EQ(m_pResult, nullptr);
        }
        for (const IID* pIid : {&IID_IUnknown, &IID_IHttpRaw, &kUnknownId})
        {
            EXPECT_EQ(CallSlot(pFace, 0, pIid, static_cast<void**>(nullptr)), E_INVALIDARG);
        }
    }
    EXPECT_EQ(m_pHttpRaw->Release(), 1u) << "a refusal took a reference";
    EXPECT_EQ(m_pHttpRaw->Release(), 0u);
}

TEST_F(HttpRawFacesTest, AnswerAtTheirSlotsBeforeAnythingIsSent)
{
    void* pFace = m_pHttpRaw;
    unsigned long status = 0xEEEE;
    BSTR bstr = reinterpret_cast<BSTR>(&m_sentinel);
    EXPECT_EQ(CallSlot(pFace, 3, L"", L"a=1"), E_INVALIDARG);
    EXPECT_EQ(CallSlot(pFace, 3, L"http://127.0.0.1/x", L""), E_INVALIDARG);
    EXPECT_EQ(CallSlot(pFace, 4, L""), E_INVALIDARG);
    EXPECT_EQ(CallSlot(pFace, 5, &status), S_OK);
    EXPECT_EQ(status, 1ul) << "something was started";
    EXPECT_EQ(CallSlot(pFace, 5, static_cast<unsigned long*>(nullptr)), E_INVALIDARG);
    EXPECT_EQ(CallSlot(pFace, 6, &bstr), E_FAIL);
    EXPECT_EQ(bstr, reinterpret_cast<BSTR>(&m_sentinel));
    EXPECT_EQ(CallSlot(pFace, 7, L"C:\\file"), S_OK);
    EXPECT_EQ(CallSlot(pFace, 8, static_cast<HWND>(nullptr)), S_OK);
    EXPECT_EQ(CallSlot(pFace, 9, 5ul), S_OK);
    EXPECT_EQ(CallSlot(pFace, 10, 0ul), S_OK);
    EXPECT_EQ(CallSlot<ULONG>(pFace, 1), 2u);
    EXPECT_EQ(CallSlot<ULONG>(pFace, 2), 1u);
    EXPECT_EQ(CallSlot<ULONG>(pFace, 2), 0u);
}

}  // namespace
