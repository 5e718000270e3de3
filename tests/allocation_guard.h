/* Counts the allocations by anybody in this process. For one source file of a test. */
#ifndef ALLOCATION_GUARD_H
#define ALLOCATION_GUARD_H

#include <atomic>
#include <cstddef>

inline std::atomic<long> allocations;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define SANITIZED 1
#endif
#endif

#ifdef SANITIZED
extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*)(const volatile void*, size_t),
                                                         void (*)(const volatile void*));
static void count_allocation(const volatile void*, size_t) {
    ++allocations;
}
static void ignore_release(const volatile void*) {}
[[maybe_unused]] static const int hooks =
    __sanitizer_install_malloc_and_free_hooks(count_allocation, ignore_release);
#else
extern "C" {
void* __libc_malloc(size_t);
void* __libc_calloc(size_t, size_t);
void* __libc_realloc(void*, size_t);
void* malloc(size_t size) {
    ++allocations;
    return __libc_malloc(size);
}
void* calloc(size_t count, size_t size) {
    ++allocations;
    return __libc_calloc(count, size);
}
void* realloc(void* memory, size_t size) {
    ++allocations;
    return __libc_realloc(memory, size);
}
}
#endif

#endif
