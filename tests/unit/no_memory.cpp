#include "unit/no_memory.h"

#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

std::atomic<size_t> g_failing_allocation = 0;

namespace {

// Threads may allocate at the same time: only one of them fails.
bool fails() {
    size_t left = g_failing_allocation;
    while (left > 0 && !g_failing_allocation.compare_exchange_weak(left, left - 1)) {
    }
    return left == 1;
}

void* no_pages() {
    errno = ENOMEM;
    return MAP_FAILED;
}

}  // namespace

void* operator new(size_t size) {
    void* const memory = fails() ? nullptr : std::malloc(size > 0 ? size : 1);
    if (!memory) throw std::bad_alloc();
    return memory;
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, size_t) noexcept { std::free(memory); }

// In place of the C library's.
extern "C" {

void* mmap(void* at, size_t size, int access, int flags, int fd, off_t offset) noexcept {
    if (fails()) return no_pages();
    return reinterpret_cast<void*>(syscall(SYS_mmap, at, size, access, flags, fd, offset));
}
void* mremap(void* old, size_t old_size, size_t size, int flags, ...) noexcept {
    if (fails()) return no_pages();
    return reinterpret_cast<void*>(syscall(SYS_mremap, old, old_size, size, flags, nullptr));
}
}
