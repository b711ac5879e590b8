#include "support/guarded_heap/GuardedHeap.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <new>

namespace
{

// Really reads, and catches the fault. ReadProcessMemory would not do: Wine reads past the protection.
bool IsReadable(const void* address)
{
    return IsBadReadPtr(address, 1) == FALSE;
}

TEST(GuardedHeapTest, EndsEachArrayAtAnInaccessiblePage)
{
    for (const size_t size :
         {size_t{0}, size_t{1}, size_t{2}, size_t{37}, size_t{4080}, size_t{4096}, size_t{10'000}})
    {
        const std::unique_ptr<char[]> array(new char[size]);
        EXPECT_EQ(CGuardedHeap::SizeOf(array.get()), size);
        EXPECT_FALSE(IsReadable(array.get() + size)) << "size " << size;
        if (size != 0)
        {
            EXPECT_TRUE(IsReadable(array.get() + size - 1)) << "size " << size;
        }
    }
}

TEST(GuardedHeapTest, MakesAReleasedArrayInaccessibleForGood)
{
    std::unique_ptr<char[]> array(new char[100]);
    // Volatile: the compiler must not follow the address past the release.
    const volatile std::uintptr_t released = reinterpret_cast<std::uintptr_t>(array.get());
    array.reset();
    EXPECT_FALSE(IsReadable(reinterpret_cast<const void*>(released)));
    EXPECT_EQ(CGuardedHeap::SizeOf(reinterpret_cast<const void*>(released)), 0u);
    array.reset(new char[100]);
    EXPECT_NE(reinterpret_cast<std::uintptr_t>(array.get()), released);
}

TEST(GuardedHeapTest, CountsWhatLives)
{
    const size_t arrays = CGuardedHeap::LiveArrays();
    const size_t blocks = CGuardedHeap::LiveBlocks();
    // Called by name: the compiler may leave out the pairs that expressions make.
    void* array = ::operator new[](12);
    void* object = ::operator new(4);
    const size_t arraysNow = CGuardedHeap::LiveArrays();
    const size_t blocksNow = CGuardedHeap::LiveBlocks();
    ::operator delete[](array);
    ::operator delete(object);
    EXPECT_EQ(arraysNow, arrays + 1);
    EXPECT_EQ(blocksNow, blocks + 2);
    EXPECT_EQ(CGuardedHeap::LiveArrays(), arrays);
    EXPECT_EQ(CGuardedHeap::LiveBlocks(), blocks);
}

TEST(GuardedHeapTest, FailsTheAllocationsThatItIsToldTo)
{
    char* results[4] = {};
    unsigned requests = 0;
    {
        const CFailingHeap failing(2, 2);
        for (char*& result : results)
        {
            result = new (std::nothrow) char[8];
        }
        requests = failing.Requests();
    }
    EXPECT_NE(results[0], nullptr);
    EXPECT_EQ(results[1], nullptr);
    EXPECT_EQ(results[2], nullptr);
    EXPECT_NE(results[3], nullptr);
    EXPECT_EQ(requests, 4u);
    delete[] results[0];
    delete[] results[3];
}

TEST(GuardedHeapTest, RaisesBadAllocForTheThrowingForms)
{
    int raised = 0;
    {
        const CFailingHeap failing;
        try
        {
            ::operator delete[](::operator new[](8));
        }
        catch (const std::bad_alloc&)
        {
            ++raised;
        }
        try
        {
            ::operator delete(::operator new(8));
        }
        catch (const std::bad_alloc&)
        {
            ++raised;
        }
    }
    EXPECT_EQ(raised, 2);
}

}  // namespace
