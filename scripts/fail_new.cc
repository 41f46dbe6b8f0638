// operator new and delete by way of malloc() and free(), which fail_malloc.c lets fail: the address
// sanitizer's own call neither.
#include <cstdlib>
#include <new>

void *operator new(size_t size)
{
    if (void *p = malloc(size))
        return p;
    throw std::bad_alloc();
}

void *operator new(size_t size, const std::nothrow_t &) noexcept
{
    return malloc(size);
}

void operator delete(void *p) noexcept
{
    free(p);
}

void operator delete(void *p, size_t) noexcept
{
    free(p);
}
