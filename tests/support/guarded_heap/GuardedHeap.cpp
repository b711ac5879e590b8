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

constexpr std::uint64_t kArrayMark = 0x6b76487474704775;
constexpr std::uint64_t kObjectMark = 0x6b7648747470476f;
constexpr int kReleasedByte = 0xDD;
// malloc's promise.
constexpr size_t kAlignment = 16;

// Stands right before the block, unaligned; the mark shows an underrun when the block is released.
struct Header
{
    size_t size;
    std::uint64_t mark;
};

std::atomic<size_t> g_liveArrays{0};
std::atomic<size_t> g_liveObjects{0};
std::atomic<size_t> g_arenaUsed{0};

// The released blocks of one number of pages, in a ring. The oldest is used again once enough of them wait.
struct Waiting
{
    static constexpr size_t kLeast = 64;
    static constexpr size_t kMost = 1024;

    std::uintptr_t blocks[kMost];
    size_t oldest;
    size_t count;
};
constexpr size_t kRecycledPages = 32;
bool g_bRecycles = false;
Waiting g_waiting[kRecycledPages + 1];

[[noreturn]] void End(const char* pszReason)
{
    std::printf("GuardedHeap: %s\n", pszReason);
    std::fflush(stdout);
    std::_Exit(3);
}

// No local static with a constructor: the compiler's guard of one takes a handle for good at each load of a
// module.
std::uintptr_t Arena()
{
    static std::atomic<void*> s_pArena = nullptr;
    void* pArena = s_pArena;
    if (pArena == nullptr)
    {
        void* const pNew = VirtualAlloc(nullptr, CGuardedHeap::ArenaSize(), MEM_RESERVE, PAGE_NOACCESS);
        if (pNew == nullptr)
        {
            End("no address space");
        }
        if (s_pArena.compare_exchange_strong(pArena, pNew))
        {
            pArena = pNew;
        }
        else
        {
            VirtualFree(pNew, 0, MEM_RELEASE);
        }
    }
    return reinterpret_cast<std::uintptr_t>(pArena);
}

bool IsInArena(const void* block)
{
    return reinterpret_cast<std::uintptr_t>(block) - Arena() < CGuardedHeap::ArenaSize();
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

std::uintptr_t TakeNewPages(size_t pages)
{
    const size_t cbPages = pages * kPage;
    const size_t offset = g_arenaUsed.fetch_add(cbPages + kPage);
    if (offset + cbPages + kPage > CGuardedHeap::ArenaSize())
    {
        End("the address space is used up");
    }
    const std::uintptr_t first = Arena() + offset;
    return VirtualAlloc(reinterpret_cast<void*>(first), cbPages, MEM_COMMIT, PAGE_READWRITE) != nullptr
               ? first
               : 0;
}

std::uintptr_t TakePages(size_t pages)
{
    if (!g_bRecycles || pages > kRecycledPages)
    {
        return TakeNewPages(pages);
    }
    Waiting& waiting = g_waiting[pages];
    if (waiting.count < Waiting::kLeast)
    {
        return TakeNewPages(pages);
    }
    const std::uintptr_t first = waiting.blocks[waiting.oldest];
    waiting.oldest = (waiting.oldest + 1) % Waiting::kMost;
    --waiting.count;
    const char* const bytes = reinterpret_cast<const char*>(first);
    if (*bytes != static_cast<char>(kReleasedByte) || std::memcmp(bytes, bytes + 1, pages * kPage - 1) != 0)
    {
        End("a block was written after its release");
    }
    return first;
}

void GivePages(std::uintptr_t first, size_t pages)
{
    if (g_bRecycles && pages <= kRecycledPages && g_waiting[pages].count < Waiting::kMost)
    {
        Waiting& waiting = g_waiting[pages];
        std::memset(reinterpret_cast<void*>(first), kReleasedByte, pages * kPage);
        waiting.blocks[(waiting.oldest + waiting.count) % Waiting::kMost] = first;
        ++waiting.count;
        return;
    }
    if (!VirtualFree(reinterpret_cast<void*>(first), pages * kPage, MEM_DECOMMIT))
    {
        End("a block could not be released");
    }
}

void* AllocateGuarded(size_t size, std::uint64_t mark)
{
    const size_t pages = PagesFor(size);
    const std::uintptr_t first = TakePages(pages);
    if (first == 0)
    {
        return nullptr;
    }
    char* block = reinterpret_cast<char*>(first + pages * kPage - size);
    const Header header = {size, mark};
    std::memcpy(block - sizeof(Header), &header, sizeof(Header));
    // Not zero, so that a text left without its terminator runs into the guard.
    std::memset(block, 0xA5, size);
    return block;
}

void ReleaseGuarded(void* block, std::uint64_t mark, std::uint64_t otherMark) noexcept
{
    const Header header = ReadHeader(block);
    if (header.mark == otherMark)
    {
        End("delete and delete[] are mixed up");
    }
    if (header.mark != mark)
    {
        End("the bytes before a block were overwritten, or it was released twice");
    }
    const size_t pages = PagesFor(header.size);
    GivePages(reinterpret_cast<std::uintptr_t>(block) + header.size - pages * kPage, pages);
}

void* AllocateArray(size_t size)
{
    if (!CGuardedHeap::Grants(size, true) || size > CGuardedHeap::ArenaSize() / 4)
    {
        return nullptr;
    }
    void* const block = AllocateGuarded(size, kArrayMark);
    g_liveArrays += block != nullptr ? 1 : 0;
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
    ReleaseGuarded(block, kArrayMark, kObjectMark);
    --g_liveArrays;
}

void* AllocateObject(size_t size)
{
    if (!CGuardedHeap::Grants(size, false))
    {
        return nullptr;
    }
    const bool bGuarded = g_bRecycles && size != 0 && size % kAlignment == 0;
    void* const block = bGuarded ? AllocateGuarded(size, kObjectMark) : std::malloc(size != 0 ? size : 1);
    g_liveObjects += block != nullptr ? 1 : 0;
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
        ReleaseGuarded(block, kObjectMark, kArrayMark);
    }
    else
    {
        std::free(block);
    }
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

void CGuardedHeap::RecycleBlocks()
{
    g_bRecycles = true;
}

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
    const Header header = ReadHeader(array);
    return header.mark == kArrayMark ? header.size : 0;
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
