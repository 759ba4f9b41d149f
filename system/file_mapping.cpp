#include "system/file_mapping.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <new>

#include "system/signals.h"

namespace {

// What a signal handler looks through: a mapping more than there is room for is not made.
constexpr size_t MOST_MAPPINGS = 64;
std::atomic<FileMapping*> g_mappings[MOST_MAPPINGS];
std::atomic<size_t> g_lost_pages = 0;
struct sigaction g_before {};  // what became of the signal before there was a mapping

size_t page_size() {
    static const size_t size = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    return size;
}

// The bytes of memory behind so many bytes of a file and the one behind them.
size_t mapped_size(size_t size) { return (size / page_size() + 1) * page_size(); }

}  // namespace

// Of SIGBUS, by which the kernel tells that it has no bytes for a page.
struct FileMapping::Handler {
    static FileMapping* find(const char* place) {
        for (const auto& entry : g_mappings) {
            FileMapping* const mapping = entry.load(std::memory_order_acquire);
            if (mapping && mapping->holds(place)) return mapping;
        }
        return nullptr;
    }

    static bool replace_page(char* place) {
        FileMapping* const mapping = find(place);
        if (!mapping) return false;
        char* const page = place - reinterpret_cast<uintptr_t>(place) % page_size();
        constexpr int FLAGS = MAP_FIXED | MAP_PRIVATE | MAP_ANONYMOUS;
        if (mmap(page, page_size(), PROT_READ | PROT_WRITE, FLAGS, -1, 0) == MAP_FAILED) return false;
        mapping->lost_.store(true, std::memory_order_relaxed);
        g_lost_pages.fetch_add(1, std::memory_order_relaxed);
        return true;
    }

    static void handle(int number, siginfo_t* info, void* context) {
        const int error = errno;
        const bool sent = info->si_code <= 0;  // by a process
        const bool replaced = !sent && replace_page(static_cast<char*>(info->si_addr));
        errno = error;
        if (replaced) return;
        if ((g_before.sa_flags & SA_SIGINFO) != 0) {
            g_before.sa_sigaction(number, info, context);
        } else if (g_before.sa_handler == SIG_DFL) {
            kpe_set_handler(number, SIG_DFL);
            std::raise(number);
        } else if (g_before.sa_handler != SIG_IGN) {
            g_before.sa_handler(number);
        } else if (!sent) {
            kpe_set_handler(number, SIG_DFL);  // the access is made again, and ends the process
        }
    }

    static void install() {
        static const bool installed = [] {
            page_size();
            struct sigaction action {};
            action.sa_sigaction = handle;
            action.sa_flags = SA_SIGINFO | SA_ONSTACK | SA_NODEFER;
            sigemptyset(&action.sa_mask);
            return sigaction(SIGBUS, nullptr, &g_before) == 0 && sigaction(SIGBUS, &action, nullptr) == 0;
        }();
        static_cast<void>(installed);
    }
};

FileMapping::FileMapping(int fd, char* data, size_t size) : fd_(fd), data_(data), size_(size) {}

FileMapping::~FileMapping() {
    for (auto& entry : g_mappings) {
        FileMapping* self = this;
        if (entry.compare_exchange_strong(self, nullptr)) break;
    }
    munmap(data_, mapped_size(size_));
    close(fd_);
}

bool FileMapping::enter() {
    for (auto& entry : g_mappings) {
        FileMapping* none = nullptr;
        if (entry.compare_exchange_strong(none, this)) return true;
    }
    return false;
}

// The page behind the last one is memory if the file ends with a page. Only the last page is ever written to, which
// makes it a copy.
std::unique_ptr<FileMapping> FileMapping::make(int fd, size_t size) {
    Handler::install();
    const size_t all = mapped_size(size);
    constexpr int PLAIN = MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE;
    void* const place = mmap(nullptr, all, PROT_READ, PLAIN, -1, 0);
    if (place == MAP_FAILED) {
        close(fd);
        return nullptr;
    }
    char* const data = static_cast<char*>(place);
    std::unique_ptr<FileMapping> mapping;
    try {
        mapping.reset(new FileMapping(fd, data, size));
    } catch (const std::bad_alloc&) {
        munmap(place, all);
        close(fd);
        return nullptr;
    }
    constexpr int FILE_FLAGS = MAP_PRIVATE | MAP_NORESERVE | MAP_FIXED;
    const bool mapped = mmap(data, size, PROT_READ, FILE_FLAGS, fd, 0) != MAP_FAILED;
    if (!mapped || !mapping->enter()) return nullptr;
    madvise(data, size, MADV_SEQUENTIAL);  // a search waits half as long where more is read ahead
    mapping->put_line_end(size);
    return mapping;
}

void FileMapping::put_line_end(size_t place) {
    same_ = place;
    char* const page = data_ + place / page_size() * page_size();
    if (mprotect(page, page_size(), PROT_READ | PROT_WRITE) == 0) data_[place] = '\n';
}

bool FileMapping::holds(const char* place) const {
    return reinterpret_cast<uintptr_t>(place) - reinterpret_cast<uintptr_t>(data_) < mapped_size(size_);
}

const FileMapping* FileMapping::holding(std::string_view bytes) {
    const FileMapping* const mapping = bytes.empty() ? nullptr : Handler::find(bytes.data());
    const bool all = mapping && bytes.data() + bytes.size() <= mapping->data_ + mapping->same_;
    return all ? mapping : nullptr;
}

void FileMapping::touch(std::string_view bytes) {
    if (bytes.empty() || !Handler::find(bytes.data())) return;
    for (size_t i = 0; i < bytes.size(); i += page_size())
        static_cast<void>(*const_cast<const volatile char*>(&bytes[i]));
    static_cast<void>(*const_cast<const volatile char*>(&bytes.back()));
}

size_t FileMapping::lost_pages() { return g_lost_pages.load(std::memory_order_relaxed); }
