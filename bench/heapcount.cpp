/*
 * The replaced global allocation functions of heapcount.h. Blocks made
 * while counting was off and freed while on are subtracted too; callers
 * measure stretches that free nothing older than themselves.
 */
#include "heapcount.h"

#include <malloc.h>

#include <cstdlib>
#include <new>

namespace {

bool counting = false;
heapcount::Totals live;

void* allocate(std::size_t size)
{
    void* p = std::malloc(size == 0 ? 1 : size);
    if (p != nullptr && counting) {
        live.usableBytes += static_cast<long long>(malloc_usable_size(p));
        live.blocks++;
    }
    return p;
}

void release(void* p)
{
    if (p == nullptr)
        return;
    if (counting) {
        live.usableBytes -= static_cast<long long>(malloc_usable_size(p));
        live.blocks--;
    }
    std::free(p);
}

}  // namespace

namespace heapcount {

void enable(bool on)
{
    counting = on;
}

Totals now()
{
    return live;
}

}  // namespace heapcount

void* operator new(std::size_t size)
{
    void* p = allocate(size);
    if (p == nullptr)
        throw std::bad_alloc();
    return p;
}

void* operator new[](std::size_t size)
{
    return ::operator new(size);
}

void* operator new(std::size_t size, const std::nothrow_t&) noexcept
{
    return allocate(size);
}

void* operator new[](std::size_t size, const std::nothrow_t&) noexcept
{
    return allocate(size);
}

void operator delete(void* p) noexcept
{
    release(p);
}

void operator delete[](void* p) noexcept
{
    release(p);
}

void operator delete(void* p, std::size_t) noexcept
{
    release(p);
}

void operator delete[](void* p, std::size_t) noexcept
{
    release(p);
}

void operator delete(void* p, const std::nothrow_t&) noexcept
{
    release(p);
}

void operator delete[](void* p, const std::nothrow_t&) noexcept
{
    release(p);
}
