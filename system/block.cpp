#include "system/block.h"

#include <sys/mman.h>
#include <time.h>

#include <atomic>
#include <cstdint>
#include <cstring>
#include <new>
#include <utility>

namespace {

constexpr size_t PAGE = size_t{4} << 10, LARGE_PAGE = size_t{2} << 20;
constexpr size_t MAPPED_FROM = size_t{512} << 10;  // bytes; smaller blocks are heap memory
constexpr size_t LARGE_FROM = size_t{16} << 20;    // bytes; smaller blocks get no large pages: the first may be slow

// Whether large pages are faster than the small ones that they stand for. A virtual machine may have handed the memory
// back to its host, and then gets a large page some twenty times more slowly than otherwise.
std::atomic<bool> g_large_pages_pay = true;
constexpr long SLOW_LARGE_PAGE = 1000000;  // nanoseconds; small pages for as many bytes take less, a usual one a third

bool is_mapped(size_t capacity) { return capacity >= MAPPED_FROM; }
bool may_be_large(size_t capacity) { return capacity >= LARGE_FROM; }

size_t rounded_up(size_t bytes, size_t page) { return (bytes + page - 1) / page * page; }

// The bytes of address space behind a mapped block of that capacity: whole large pages where there may be some, as the
// kernel uses one only where all of it is mapped.
size_t mapped_size(size_t capacity) {
    if (capacity > SIZE_MAX / 2) throw std::bad_alloc();
    return rounded_up(capacity, may_be_large(capacity) ? LARGE_PAGE : PAGE);
}

char* map_pages(size_t bytes) {
    void* const got = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (got == MAP_FAILED) throw std::bad_alloc();
    return static_cast<char*>(got);
}

// Only a wish: pages of any size work. Small ones have to be wished for where the system gives out large ones unasked.
void choose_page_size(char* data, size_t bytes) {
    madvise(data, bytes, g_large_pages_pay.load(std::memory_order_relaxed) ? MADV_HUGEPAGE : MADV_NOHUGEPAGE);
}

// Large pages are aligned: maps one more, and cuts off what is over.
char* map_aligned(size_t bytes) {
    char* start = map_pages(bytes + LARGE_PAGE);
    const size_t beyond = reinterpret_cast<uintptr_t>(start) % LARGE_PAGE;
    const size_t head = beyond == 0 ? 0 : LARGE_PAGE - beyond;
    if (head > 0) munmap(start, head);
    start += head;
    if (LARGE_PAGE > head) munmap(start + bytes, LARGE_PAGE - head);
    choose_page_size(start, bytes);
    return start;
}

// Of the thread that asks, in nanoseconds. Others that get the processor meanwhile do not count.
long processor_time() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return now.tv_sec * 1000000000 + now.tv_nsec;
}

char* allocate(size_t capacity) {
    if (may_be_large(capacity)) return map_aligned(mapped_size(capacity));
    if (is_mapped(capacity)) return map_pages(mapped_size(capacity));
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

Block::Block(std::unique_ptr<FileMapping> file, size_t size)
    : file_(std::move(file)), data_(file_->data()), size_(size), capacity_(size + 1) {}

Block::~Block() {
    if (!file_) release(data_, capacity_);
}

void Block::cut(size_t size) {
    file_->put_line_end(size);
    size_ = size;
}

void Block::append(std::string_view bytes) {
    if (!bytes.empty()) std::memcpy(data_ + size_, bytes.data(), bytes.size());
    size_ += bytes.size();
}

void Block::reserve(size_t capacity) {
    if (capacity > capacity_) resize(capacity);
}

void Block::make_ready(size_t from, size_t count) noexcept {
    if (!is_mapped(capacity_) || count == 0) return;
    const size_t begin = from / PAGE * PAGE, end = rounded_up(from + count, PAGE);
    const bool large = may_be_large(capacity_) && g_large_pages_pay.load(std::memory_order_relaxed);
    const long start = large ? processor_time() : 0;
    madvise(data_ + begin, end - begin, MADV_POPULATE_WRITE);  // an old kernel refuses: then each page comes by itself
    const size_t pages = rounded_up(end - begin, LARGE_PAGE) / LARGE_PAGE;
    if (!large || processor_time() - start <= SLOW_LARGE_PAGE * static_cast<long>(pages)) return;
    g_large_pages_pay = false;
    choose_page_size(data_, mapped_size(capacity_));
}

void Block::shrink() noexcept {
    if (file_) return;
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
    } else {
        moved = allocate(capacity);
        std::memcpy(moved, data_, size_);
        release(data_, capacity_);
    }
    data_ = moved;
    capacity_ = capacity;
}
