// The module's own operators new and delete. Those of some C++ runtimes make the ones that give null by
// catching what the others throw; and where memory has run out for good, throwing ends the host's process,
// because the runtime has no memory for that either.
#include <cstdlib>
#include <new>

void* operator new(size_t cb)
{
    void* const block = operator new(cb, std::nothrow);
    if (block == nullptr)
    {
        throw std::bad_alloc();
    }
    return block;
}

void* operator new(size_t cb, const std::nothrow_t& /*nothrow*/) noexcept
{
    return std::malloc(cb != 0 ? cb : 1);
}

void* operator new[](size_t cb, const std::nothrow_t& nothrow) noexcept
{
    return operator new(cb, nothrow);
}

void operator delete(void* block) noexcept
{
    std::free(block);
}

void operator delete(void* block, size_t /*cb*/) noexcept
{
    std::free(block);
}
