#include "scarcity.h"

#include "vxexport.h"

#include <dlfcn.h>
#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <new>

namespace {

constexpr long gnNever = -1;
std::atomic<long> gnLeft{gnNever}; // requests that are granted yet
std::atomic<bool> gbOnce{false};
std::atomic<bool> gbRefused{false};
thread_local bool tbExempt = false;

bool IsRefused()
{
    if (gnLeft.load(std::memory_order_relaxed) == gnNever || tbExempt) return false;
    long left = gnLeft.load();
    do {
        if (left == gnNever) return false;
        if (left == 0) break;
    } while (!gnLeft.compare_exchange_weak(left, left - 1));
    if (left > 0) return false;
    if (gbOnce) gnLeft = gnNever;
    gbRefused = true;
    return true;
}

} // namespace

void scarcity::Begin(long nth, teExtent extent)
{
    gbRefused = false;
    gbOnce = extent == teExtent::eOnce;
    gnLeft = nth - 1;
}

bool scarcity::End()
{
    gnLeft = gnNever;
    return gbRefused;
}

void scarcity::ExemptThisThread()
{
    tbExempt = true;
}

// ---- In place of the system's -------------------------------------------------------------------
// The library takes them from here, so they are seen outside the program.

extern "C" VX_EXPORT int pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                                        void* (*run)(void*), void* argument)
{
    using tpCreate = int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
    static const auto spCreate = reinterpret_cast<tpCreate>(dlsym(RTLD_NEXT, "pthread_create"));
    return IsRefused() ? EAGAIN : spCreate(thread, attributes, run, argument);
}

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)

void* operator new(size_t size)
{
    void* memory = IsRefused() ? nullptr : malloc(size);
    if (memory == nullptr) throw std::bad_alloc();
    return memory;
}

void* operator new(size_t size, const std::nothrow_t&) noexcept
{
    return IsRefused() ? nullptr : malloc(size);
}

void* operator new[](size_t size)
{
    return operator new(size);
}

void* operator new[](size_t size, const std::nothrow_t& tag) noexcept
{
    return operator new(size, tag);
}

void operator delete(void* memory) noexcept
{
    free(memory);
}

void operator delete(void* memory, size_t) noexcept
{
    free(memory);
}

void operator delete[](void* memory) noexcept
{
    free(memory);
}

void operator delete[](void* memory, size_t) noexcept
{
    free(memory);
}

#else

// The C library's own names.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" void* __libc_malloc(size_t size);
extern "C" void* __libc_calloc(size_t count, size_t size);
extern "C" void* __libc_realloc(void* memory, size_t size);
// NOLINTEND(bugprone-reserved-identifier)

template <class Call>
static void* Allocate(Call call)
{
    if (!IsRefused()) return call();
    errno = ENOMEM;
    return nullptr;
}

extern "C" void* malloc(size_t size)
{
    return Allocate([=] { return __libc_malloc(size); });
}

extern "C" void* calloc(size_t count, size_t size)
{
    return Allocate([=] { return __libc_calloc(count, size); });
}

extern "C" void* realloc(void* memory, size_t size)
{
    return Allocate([=] { return __libc_realloc(memory, size); });
}

#endif
