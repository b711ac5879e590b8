// The counts of the object base and the factory, changed by several threads at once.
#include <gtest/gtest.h>

#include <atomic>
#include <new>

#include "kvHttp/HttpRaw.h"
#include "server/Factory.h"
#include "server/Unknown.h"
#include "support/CountTogether.h"

namespace
{

class CComponent : public CUnknown
{
public:
    CComponent() : CUnknown(nullptr) {}
};

TEST(CountsTest, ReferencesOfAComponentAreAllCounted)
{
    auto* const pComponent = new CComponent;
    ExpectAllCounted([&] { pComponent->NondelegatingAddRef(); }, [&] { pComponent->NondelegatingRelease(); },
                     [&]
                     {
                         pComponent->NondelegatingAddRef();
                         return static_cast<LONG>(pComponent->NondelegatingRelease());
                     });
    EXPECT_EQ(pComponent->NondelegatingRelease(), 0u);
}

TEST(CountsTest, ComponentsAreAllCounted)
{
    alignas(CComponent) static unsigned char s_components[kCountedTogether][sizeof(CComponent)];
    std::atomic<LONG> made{0};
    ExpectAllCounted([&] { new (s_components[made++]) CComponent; },
                     [&] { reinterpret_cast<CComponent*>(s_components[--made])->~CComponent(); },
                     [] { return g_cComponents; });
}

TEST(CountsTest, ReferencesOfAFactoryAreAllCounted)
{
    const CFactoryData row = {&CLSID_HttpRaw, nullptr, L"", L"", L""};
    auto* const pFactory = new CFactory(&row);
    ExpectAllCounted([&] { pFactory->AddRef(); }, [&] { pFactory->Release(); },
                     [&]
                     {
                         pFactory->AddRef();
                         return static_cast<LONG>(pFactory->Release());
                     });
    EXPECT_EQ(pFactory->Release(), 0u);
}

TEST(CountsTest, LocksOfTheServerAreAllCounted)
{
    const CFactoryData row = {&CLSID_HttpRaw, nullptr, L"", L"", L""};
    auto* const pFactory = new CFactory(&row);
    ExpectAllCounted([&] { pFactory->LockServer(TRUE); }, [&] { pFactory->LockServer(FALSE); },
                     [] { return g_cServerLocks; });
    EXPECT_EQ(pFactory->Release(), 0u);
}

}  // namespace
