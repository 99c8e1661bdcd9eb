/* Preloaded: counts the process's allocations. The calls go through to the C library's own functions. */

#include <stdatomic.h>
#include <stddef.h>

void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* block, size_t size);
void* __libc_memalign(size_t alignment, size_t size);
long CountedAllocations(void);

static atomic_long allocations;

long CountedAllocations(void) {
    return atomic_load(&allocations);
}

void* malloc(size_t size) {
    atomic_fetch_add(&allocations, 1);
    return __libc_malloc(size);
}

void* calloc(size_t count, size_t size) {
    atomic_fetch_add(&allocations, 1);
    return __libc_calloc(count, size);
}

void* realloc(void* block, size_t size) {
    atomic_fetch_add(&allocations, 1);
    return __libc_realloc(block, size);
}

void* memalign(size_t alignment, size_t size) {
    atomic_fetch_add(&allocations, 1);
    return __libc_memalign(alignment, size);
}

void* aligned_alloc(size_t alignment, size_t size) {
    atomic_fetch_add(&allocations, 1);
    return __libc_memalign(alignment, size);
}
