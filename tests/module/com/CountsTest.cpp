// The counts of the built module, changed by several threads at once as a host's threads may.
#include <gtest/gtest.h>

#include "module/com/ServerModule.h"
#include "support/CountTogether.h"

namespace
{

class ModuleCountsTest : public testing::Test
{
protected:
    ~ModuleCountsTest() override { EXPECT_EQ(m_module.CanUnloadNow(), S_OK) << "something was left behind"; }

    // Of an object with a reference that the test holds.
    static void ExpectAllReferencesCounted(IUnknown* pObject)
    {
        ASSERT_NE(pObject, nullptr);
        ExpectAllCounted([=] { pObject->AddRef(); }, [=] { pObject->Release(); },
                         [=]
                         {
                             pObject->AddRef();
                             return static_cast<LONG>(pObject->Release());
                         });
        EXPECT_EQ(pObject->Release(), 0u);
    }

    CServerModule m_module;
};

TEST_F(ModuleCountsTest, ReferencesOfAComponentAreAllCounted)
{
    ExpectAllReferencesCounted(m_module.CreateHttpRaw());
}

TEST_F(ModuleCountsTest, ReferencesOfAFactoryAreAllCounted)
{
    ExpectAllReferencesCounted(m_module.CreateFactory());
}

TEST_F(ModuleCountsTest, LocksAreAllCounted)
{
    IClassFactory* const pFactory = m_module.CreateFactory();
    ASSERT_NE(pFactory, nullptr);
    // The module tells only whether there are any: all are taken away, and put back.
    const auto count = [=, this]
    {
        LONG locks = 0;
        for (; m_module.CanUnloadNow() == S_FALSE; ++locks)
        {
            pFactory->LockServer(FALSE);
        }
        for (LONG lock = 0; lock < locks; ++lock)
        {
            pFactory->LockServer(TRUE);
        }
        return locks;
    };
    ExpectAllCounted([=] { pFactory->LockServer(TRUE); }, [=] { pFactory->LockServer(FALSE); }, count);
    EXPECT_EQ(pFactory->Release(), 0u);
}

}  // namespace
