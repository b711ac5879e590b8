#include "support/guarded_heap/GuardedHeap.h"

#include <windows.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

namespace
{

constexpr size_t kPage = 4096;
constexpr size_t kArenaSize = size_t{1} << 36;
[[maybe_unused]] const bool g_bAsks = CFailingHeap::UseOperators();

constexpr std::uint64_t kMark = 0x6b76487474704775;

// Stands right before the block, unaligned; the mark shows an underrun when the block is released.
struct Header
{
    size_t size;
    std::uint64_t mark;
};

std::atomic<size_t> g_liveArrays{0};
std::atomic<size_t> g_liveObjects{0};
std::atomic<size_t> g_arenaUsed{0};

[[noreturn]] void End(const char* pszReason)
{
    std::printf("GuardedHeap: %s\n", pszReason);
    std::fflush(stdout);
    std::_Exit(3);
}

std::uintptr_t Arena()
{
    static const std::uintptr_t s_arena =
        reinterpret_cast<std::uintptr_t>(VirtualAlloc(nullptr, kArenaSize, MEM_RESERVE, PAGE_NOACCESS));
    if (s_arena == 0)
    {
        End("no address space");
    }
    return s_arena;
}

bool IsInArena(const void* block)
{
    return reinterpret_cast<std::uintptr_t>(block) - Arena() < kArenaSize;
}

size_t PagesFor(size_t size)
{
    return (size + sizeof(Header) + kPage - 1) / kPage;
}

Header ReadHeader(const void* block)
{
    Header header;
    std::memcpy(&header, static_cast<const char*>(block) - sizeof(Header), sizeof(Header));
    return header;
}

void* AllocateArray(size_t size)
{
    if (CFailingHeap::Refuses(size) || size > kArenaSize / 4)
    {
        return nullptr;
    }
    const size_t cbPages = PagesFor(size) * kPage;
    const size_t offset = g_arenaUsed.fetch_add(cbPages + kPage);
    if (offset + cbPages + kPage > kArenaSize)
    {
        End("the address space is used up");
    }
    const std::uintptr_t first = Arena() + offset;
    if (VirtualAlloc(reinterpret_cast<void*>(first), cbPages, MEM_COMMIT, PAGE_READWRITE) == nullptr)
    {
        return nullptr;
    }
    char* block = reinterpret_cast<char*>(first + cbPages - size);
    const Header header = {size, kMark};
    std::memcpy(block - sizeof(Header), &header, sizeof(Header));
    // Not zero, so that a text left without its terminator runs into the guard.
    std::memset(block, 0xA5, size);
    ++g_liveArrays;
    return block;
}

void ReleaseArray(void* block) noexcept
{
    if (block == nullptr)
    {
        return;
    }
    if (!IsInArena(block))
    {
        End("delete[] of a block that new[] did not make");
    }
    const Header header = ReadHeader(block);
    if (header.mark != kMark)
    {
        End("the bytes before an array were overwritten");
    }
    const size_t cbPages = PagesFor(header.size) * kPage;
    const std::uintptr_t end = reinterpret_cast<std::uintptr_t>(block) + header.size;
    if (!VirtualFree(reinterpret_cast<void*>(end - cbPages), cbPages, MEM_DECOMMIT))
    {
        End("a block could not be released");
    }
    --g_liveArrays;
}

void* AllocateObject(size_t size)
{
    void* block = CFailingHeap::Refuses(size) ? nullptr : std::malloc(size != 0 ? size : 1);
    if (block != nullptr)
    {
        ++g_liveObjects;
    }
    return block;
}

void ReleaseObject(void* block) noexcept
{
    if (block == nullptr)
    {
        return;
    }
    if (IsInArena(block))
    {
        End("delete of a block that new[] made");
    }
    std::free(block);
    --g_liveObjects;
}

void* OrThrow(void* block)
{
    if (block == nullptr)
    {
        throw std::bad_alloc();
    }
    return block;
}

}  // namespace

size_t CGuardedHeap::LiveArrays()
{
    return g_liveArrays;
}

size_t CGuardedHeap::LiveBlocks()
{
    return g_liveArrays + g_liveObjects;
}

size_t CGuardedHeap::SizeOf(const void* array)
{
    MEMORY_BASIC_INFORMATION information = {};
    if (!IsInArena(array) || VirtualQuery(array, &information, sizeof(information)) == 0 ||
        information.State != MEM_COMMIT)
    {
        return 0;
    }
    return ReadHeader(array).size;
}

void* operator new(size_t size)
{
    return OrThrow(AllocateObject(size));
}

void* operator new(size_t size, const std::nothrow_t&) noexcept
{
    return AllocateObject(size);
}

void* operator new[](size_t size)
{
    return OrThrow(AllocateArray(size));
}

void* operator new[](size_t size, const std::nothrow_t&) noexcept
{
    return AllocateArray(size);
}

void operator delete(void* block) noexcept
{
    ReleaseObject(block);
}

void operator delete(void* block, size_t) noexcept
{
    ReleaseObject(block);
}

void operator delete(void* block, const std::nothrow_t&) noexcept
{
    ReleaseObject(block);
}

void operator delete[](void* block) noexcept
{
    ReleaseArray(block);
}

void operator delete[](void* block, size_t) noexcept
{
    ReleaseArray(block);
}

void operator delete[](void* block, const std::nothrow_t&) noexcept
{
    ReleaseArray(block);
}
