#include "server/Unknown.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "unit/server/Vtable.h"

namespace
{

using testing::ElementsAre;

// Slots of the deleting and the complete destructor: one with the Microsoft compiler, two with the
// other ABI.
#ifdef _MSC_VER
constexpr int kDestructorSlots = 1;
#else
constexpr int kDestructorSlots = 2;
#endif

// Notes what happens to it, and takes and drops a reference on its way down, as members do that hold
// their owner for the time of a call.
class CComponent : public CUnknown
{
public:
    explicit CComponent(std::vector<std::string>& log, IUnknown* pUnknownOuter = nullptr)
        : CUnknown(pUnknownOuter), m_log(log)
    {
    }
    ~CComponent() override
    {
        m_log.push_back("destructor, components " + std::to_string(g_cComponents));
        m_log.push_back("AddRef " + std::to_string(NondelegatingAddRef()));
        m_log.push_back("Release " + std::to_string(NondelegatingRelease()));
    }

    HRESULT Init() override
    {
        m_log.push_back("Init");
        return S_FALSE;
    }
    void FinalRelease() override
    {
        m_log.push_back("FinalRelease");
        CUnknown::FinalRelease();
        m_log.push_back("AddRef " + std::to_string(NondelegatingAddRef()));
        m_log.push_back("Release " + std::to_string(NondelegatingRelease()));
    }

    using CUnknown::OuterUnknown;

private:
    std::vector<std::string>& m_log;
};

class UnknownTest : public testing::Test
{
protected:
    UnknownTest() { m_log.reserve(16); }

    std::vector<std::string> m_log;
    CComponent* m_pComponent = new CComponent(m_log);
};

TEST_F(UnknownTest, StartsWithOneReference)
{
    EXPECT_EQ(m_pComponent->NondelegatingAddRef(), 2u);
    EXPECT_EQ(m_pComponent->NondelegatingAddRef(), 3u);
    EXPECT_EQ(m_pComponent->NondelegatingRelease(), 2u);
    EXPECT_EQ(m_pComponent->NondelegatingRelease(), 1u);
    EXPECT_THAT(m_log, ElementsAre());
    EXPECT_EQ(m_pComponent->NondelegatingRelease(), 0u);
}

TEST_F(UnknownTest, RunsFinalReleaseBeforeTheDestructorAndIsDeletedOnce)
{
    m_pComponent->NondelegatingRelease();
    // The count stands at 1 from FinalRelease on, so that no pair of calls reaches 0 again.
    EXPECT_THAT(m_log, ElementsAre("FinalRelease", "AddRef 2", "Release 1", "destructor, components 1",
                                   "AddRef 2", "Release 1"));
}

TEST_F(UnknownTest, CountsTheComponentsAlive)
{
    EXPECT_EQ(g_cComponents, 1);
    std::vector<std::string> log;
    auto* pSecond = new CComponent(log);
    EXPECT_EQ(g_cComponents, 2);
    pSecond->NondelegatingRelease();
    EXPECT_EQ(g_cComponents, 1);
    m_pComponent->NondelegatingRelease();
    EXPECT_EQ(g_cComponents, 0);
}

TEST_F(UnknownTest, AnswersIUnknownWithItsNondelegatingFaceAndOneMoreReference)
{
    void* pFace = nullptr;
    EXPECT_EQ(m_pComponent->NondelegatingQueryInterface(IID_IUnknown, &pFace), S_OK);
    EXPECT_EQ(pFace, static_cast<INondelegatingUnknown*>(m_pComponent));
    EXPECT_EQ(m_pComponent->NondelegatingRelease(), 1u);
    m_pComponent->NondelegatingRelease();
}

TEST_F(UnknownTest, StoresNullForAnyOtherInterface)
{
    int sentinel = 0;
    void* pFace = &sentinel;
    EXPECT_EQ(m_pComponent->NondelegatingQueryInterface(IID_IClassFactory, &pFace), E_NOINTERFACE);
    EXPECT_EQ(pFace, nullptr);
    EXPECT_EQ(m_pComponent->NondelegatingRelease(), 0u);
}

TEST_F(UnknownTest, NondelegatingFaceHasTheSlotsOfIUnknown)
{
    INondelegatingUnknown* pFace = m_pComponent;
    void* pAnswer = nullptr;
    EXPECT_EQ(CallSlot(pFace, 0, &IID_IUnknown, &pAnswer), S_OK);
    EXPECT_EQ(pAnswer, pFace);
    EXPECT_EQ(CallSlot<ULONG>(pFace, 1), 3u);
    EXPECT_EQ(CallSlot<ULONG>(pFace, 2), 2u);
    EXPECT_EQ(CallSlot<ULONG>(pFace, 2), 1u);
    EXPECT_EQ(CallSlot<ULONG>(pFace, 2), 0u);
}

TEST_F(UnknownTest, HasInitAndFinalReleaseBehindTheDestructor)
{
    INondelegatingUnknown* pFace = m_pComponent;
    EXPECT_EQ(CallSlot(pFace, 3 + kDestructorSlots), S_FALSE);
    CallSlot<void>(pFace, 4 + kDestructorSlots);
    EXPECT_THAT(m_log, ElementsAre("Init", "FinalRelease", "AddRef 2", "Release 1"));
    m_pComponent->NondelegatingRelease();
}

TEST_F(UnknownTest, IsItsOwnOuterObjectWhenItHasNone)
{
    IUnknown* pOuter = m_pComponent->OuterUnknown();
    EXPECT_EQ(static_cast<void*>(pOuter), static_cast<INondelegatingUnknown*>(m_pComponent));
    EXPECT_EQ(pOuter->AddRef(), 2u);
    EXPECT_EQ(pOuter->Release(), 1u);
    EXPECT_EQ(pOuter->Release(), 0u);
    EXPECT_EQ(m_log.front(), "FinalRelease");
}

TEST_F(UnknownTest, BorrowsItsOuterObject)
{
    std::vector<std::string> log;
    IUnknown* pOuter = m_pComponent->OuterUnknown();
    auto* pInner = new CComponent(log, pOuter);
    EXPECT_EQ(pInner->OuterUnknown(), pOuter);
    pInner->NondelegatingRelease();
    EXPECT_EQ(m_pComponent->NondelegatingRelease(), 0u) << "the inner object held a reference";
}

TEST(UnknownBaseTest, InitSucceeds)
{
    struct CPlain : CUnknown
    {
        CPlain() : CUnknown(nullptr) {}
    };
    auto* pPlain = new CPlain;
    EXPECT_EQ(pPlain->Init(), S_OK);
    EXPECT_EQ(pPlain->NondelegatingRelease(), 0u);
}

}  // namespace
