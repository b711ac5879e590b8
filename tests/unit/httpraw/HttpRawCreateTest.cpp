// The object as the factory sees it, before any host has it.
#include <gtest/gtest.h>

#include "httpraw/HttpRaw.h"
#include "support/FailingHeap.h"
#include "unit/server/Vtable.h"

namespace
{

class HttpRawCreateTest : public testing::Test
{
protected:
    ~HttpRawCreateTest() override { EXPECT_EQ(g_cComponents, 0) << "a component was left behind"; }

    int m_sentinel = 0;
    CUnknown* m_pSentinel = reinterpret_cast<CUnknown*>(&m_sentinel);
    CUnknown* m_pComponent = m_pSentinel;
};

TEST_F(HttpRawCreateTest, StoresAComponentWithOneReference)
{
    ASSERT_EQ(CHttpRaw::CreateInstance(nullptr, &m_pComponent), S_OK);
    EXPECT_EQ(g_cComponents, 1);
    EXPECT_EQ(m_pComponent->Init(), S_OK);
    EXPECT_EQ(m_pComponent->NondelegatingAddRef(), 2u);
    EXPECT_EQ(m_pComponent->NondelegatingRelease(), 1u);
    EXPECT_EQ(m_pComponent->NondelegatingRelease(), 0u);
}

TEST_F(HttpRawCreateTest, RefusesToBeAggregated)
{
    IUnknown* pOuter = reinterpret_cast<IUnknown*>(&m_sentinel);
    EXPECT_EQ(CHttpRaw::CreateInstance(pOuter, &m_pComponent), CLASS_E_NOAGGREGATION);
    EXPECT_EQ(m_pComponent, m_pSentinel);
}

TEST_F(HttpRawCreateTest, StoresNullAndSucceedsWithoutMemory)
{
    const CFailingHeap memory(1, 1);
    EXPECT_EQ(CHttpRaw::CreateInstance(nullptr, &m_pComponent), S_OK);
    EXPECT_EQ(memory.Refusals(), 1);
    EXPECT_EQ(m_pComponent, nullptr);
}

TEST_F(HttpRawCreateTest, CountsOneReferenceThroughBothFaces)
{
    ASSERT_EQ(CHttpRaw::CreateInstance(nullptr, &m_pComponent), S_OK);
    void* pFace = nullptr;
    ASSERT_EQ(m_pComponent->NondelegatingQueryInterface(IID_IHttpRaw, &pFace), S_OK);
    EXPECT_NE(pFace, static_cast<void*>(m_pComponent)) << "the two faces are two";
    EXPECT_EQ(CallSlot<ULONG>(pFace, 1), 3u);
    EXPECT_EQ(m_pComponent->NondelegatingAddRef(), 4u);
    EXPECT_EQ(CallSlot<ULONG>(pFace, 2), 3u);
    EXPECT_EQ(m_pComponent->NondelegatingRelease(), 2u);
    EXPECT_EQ(m_pComponent->NondelegatingRelease(), 1u);
    EXPECT_EQ(CallSlot<ULONG>(pFace, 2), 0u);
}

TEST_F(HttpRawCreateTest, RefusesANullOutput)
{
    ASSERT_EQ(CHttpRaw::CreateInstance(nullptr, &m_pComponent), S_OK);
    EXPECT_EQ(m_pComponent->NondelegatingQueryInterface(IID_IUnknown, nullptr), E_INVALIDARG);
    EXPECT_EQ(m_pComponent->NondelegatingQueryInterface(IID_IHttpRaw, nullptr), E_INVALIDARG);
    EXPECT_EQ(m_pComponent->NondelegatingQueryInterface(IID_IClassFactory, nullptr), E_INVALIDARG);
    EXPECT_EQ(m_pComponent->NondelegatingRelease(), 0u);
}

}  // namespace
