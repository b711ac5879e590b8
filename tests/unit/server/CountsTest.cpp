// Counts that several threads change at once: a change that is no single step loses some of them.
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <list>
#include <new>

#include "kvHttp/HttpRaw.h"
#include "server/Factory.h"
#include "server/Unknown.h"
#include "support/SideThread.h"

namespace
{

constexpr LONG kThreads = 4;
constexpr LONG kRounds = 100'000;
constexpr LONG kAll = kThreads * kRounds;

// Threads that run one behind the other lose nothing. So each round also changes a count in two steps, on
// purpose; what that has lost shows how often the threads have met.
constexpr LONG kEnough = 2'000;
constexpr int kMaxBatches = 200;

using Step = std::function<void()>;

// Runs step kRounds times on each thread; all begin together. Returns how often they have met.
LONG RunBatch(const Step& step)
{
    std::atomic<LONG> ready{0};
    std::atomic<LONG> twoSteps{0};
    std::list<CSideThread> threads;
    for (LONG thread = 0; thread < kThreads; ++thread)
    {
        threads.emplace_back(
            [&]
            {
                ++ready;
                while (ready < kThreads)
                {
                    SwitchToThread();
                }
                for (LONG round = 0; round < kRounds; ++round)
                {
                    step();
                    twoSteps.store(twoSteps.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
                }
            });
    }
    threads.clear();
    return kAll - twoSteps;
}

// Counts up and down until the threads have met often enough both ways. On a machine that runs one thread
// at a time they never do.
void ExpectAllCounted(const Step& up, const Step& down, const std::function<LONG()>& count)
{
    const LONG atStart = count();
    LONG metUp = 0;
    LONG metDown = 0;
    for (int batch = 0; batch < kMaxBatches && (metUp < kEnough || metDown < kEnough); ++batch)
    {
        metUp += RunBatch(up);
        ASSERT_EQ(count(), atStart + kAll) << "counted up, batch " << batch;
        metDown += RunBatch(down);
        ASSERT_EQ(count(), atStart) << "counted down, batch " << batch;
    }
}

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
    alignas(CComponent) static unsigned char s_components[kAll][sizeof(CComponent)];
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
