#include "system/block.h"

#include <sys/mman.h>

#include <cstdint>
#include <cstring>
#include <new>

namespace {

constexpr size_t LARGE_PAGE = size_t{2} << 20;
// Smaller blocks are heap memory. From here on one large page is set up sooner than the small ones it stands for.
constexpr size_t MAPPED_FROM = size_t{512} << 10;  // bytes

bool is_mapped(size_t capacity) { return capacity >= MAPPED_FROM; }

// The bytes of address space behind a mapped block of that capacity: whole large pages, as the kernel uses one
// only where all of it is mapped.
size_t mapped_size(size_t capacity) {
    if (capacity > SIZE_MAX / 2) throw std::bad_alloc();
    return (capacity + LARGE_PAGE - 1) / LARGE_PAGE * LARGE_PAGE;
}

// Large pages are aligned: maps one more, and cuts off what is over.
char* map_aligned(size_t bytes) {
    void* const got = mmap(nullptr, bytes + LARGE_PAGE, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (got == MAP_FAILED) throw std::bad_alloc();
    char* start = static_cast<char*>(got);
    const size_t beyond = reinterpret_cast<uintptr_t>(start) % LARGE_PAGE;
    const size_t head = beyond == 0 ? 0 : LARGE_PAGE - beyond;
    if (head > 0) munmap(start, head);
    start += head;
    if (LARGE_PAGE > head) munmap(start + bytes, LARGE_PAGE - head);
    madvise(start, bytes, MADV_HUGEPAGE);  // only a wish: small pages work as well
    return start;
}

char* allocate(size_t capacity) {
    if (is_mapped(capacity)) return map_aligned(mapped_size(capacity));
    return static_cast<char*>(::operator new(capacity));
}

void release(char* data, size_t capacity) {
    if (is_mapped(capacity))
        munmap(data, mapped_size(capacity));
    else
        ::operator delete(data);
}

}  // namespace

Block::Block(size_t capacity) : capacity_(capacity > 0 ? capacity : 1) { data_ = allocate(capacity_); }

Block::~Block() { release(data_, capacity_); }

void Block::append(std::string_view bytes) {
    if (!bytes.empty()) std::memcpy(data_ + size_, bytes.data(), bytes.size());
    size_ += bytes.size();
}

void Block::reserve(size_t capacity) {
    if (capacity > capacity_) resize(capacity);
}

void Block::shrink() noexcept {
    const size_t needed = size_ + 1;
    const bool same_pages = is_mapped(needed) && mapped_size(needed) == mapped_size(capacity_);
    if (needed >= capacity_ || same_pages) return;
    try {
        resize(needed);
    } catch (const std::bad_alloc&) {
        // Nothing is given back then.
    }
}

// capacity holds size_ bytes at least. Pages grow and shrink in place where they can; what is or becomes heap memory is
// copied. Without memory for that all stays as it was.
void Block::resize(size_t capacity) {
    char* moved = nullptr;
    if (is_mapped(capacity) && is_mapped(capacity_)) {
        void* const got = mremap(data_, mapped_size(capacity_), mapped_size(capacity), MREMAP_MAYMOVE);
        if (got == MAP_FAILED) throw std::bad_alloc();
        moved = static_cast<char*>(got);
        madvise(moved, mapped_size(capacity), MADV_HUGEPAGE);
    } else {
        moved = allocate(capacity);
        std::memcpy(moved, data_, size_);
        release(data_, capacity_);
    }
    data_ = moved;
    capacity_ = capacity;
}
