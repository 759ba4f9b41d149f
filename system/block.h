#pragma once

#include <cstddef>
#include <memory>
#include <string_view>

#include "system/file_mapping.h"

// A piece of memory that holds text. It is filled once; after that it is shared and never changed.
//
// The memory of a large block comes from the kernel, and to let it grow copies nothing. The memory of a small block
// comes from the heap. A block may also be a file that is mapped (FileMapping).
class Block {
public:
    explicit Block(size_t capacity);  // throws std::bad_alloc
    // The bytes of a file that cannot change, with a "\n" behind them. They are not written to, but for the byte behind
    // them, and reserve() must not be called.
    Block(std::unique_ptr<FileMapping> file, size_t size);
    ~Block();
    Block(const Block&) = delete;
    Block& operator=(const Block&) = delete;

    char* data() { return data_; }
    const char* data() const { return data_; }
    size_t size() const { return size_; }
    size_t capacity() const { return capacity_; }
    std::string_view bytes() const { return {data_, size_}; }
    void set_size(size_t size) { size_ = size; }  // size <= capacity()
    void append(std::string_view bytes);          // size() + bytes.size() <= capacity()
    void reserve(size_t capacity);                // may move the bytes; throws std::bad_alloc
    void shrink() noexcept;                       // keeps one byte behind size(), frees the rest; may move the bytes
    // Has the kernel set up the memory for bytes [from, from + count), which lie within the capacity and are about to
    // be written. That is sooner done at once than page by page, and best for MADE_READY bytes: these are written while
    // the processor still has them in its cache. Threads may call it at the same time, best more than a large page (2
    // MB) apart.
    void make_ready(size_t from, size_t count) noexcept;
    static constexpr size_t MADE_READY = size_t{256} << 10;

    // Makes a mapped block end there; a "\n" is put behind it. size <= size()
    void cut(size_t size);
    const FileMapping* file() const { return file_.get(); }  // null if the bytes are memory of this process

private:
    void resize(size_t capacity);

    std::unique_ptr<FileMapping> file_;
    char* data_ = nullptr;
    size_t size_ = 0, capacity_ = 0;
};
