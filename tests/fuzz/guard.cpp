#include "fuzz/guard.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <malloc.h>
#include <new>
#include <poll.h>
#include <string_view>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "system/interrupts.h"
#include "system/process.h"

namespace {

constexpr size_t MOST_MEMORY = size_t{128} << 20;
constexpr rlim_t LARGEST_FILE = rlim_t{8} << 20;
constexpr long ESCAPE_DELAY = 25'000'000;  // nanoseconds: how long kpe waits for the rest of a key's bytes
constexpr long PATIENCE = 300'000'000, BETWEEN_PRESSES = 20'000'000;  // nanoseconds

const std::string* g_root = nullptr;  // while a Guard lives
std::function<void()> g_on_wait;
size_t g_memory = 0, g_most_memory = 0, g_failing = 0;

void press_interrupt(int) { g_kpe_abort_requested = 1; }

timer_t interrupt_timer() {
    static const timer_t timer = [] {
        struct sigaction action = {};
        action.sa_handler = press_interrupt;
        action.sa_flags = SA_RESTART;
        sigaction(SIGRTMIN, &action, nullptr);
        sigevent event = {};
        event.sigev_notify = SIGEV_SIGNAL;
        event.sigev_signo = SIGRTMIN;
        timer_t made = nullptr;
        timer_create(CLOCK_PROCESS_CPUTIME_ID, &event, &made);
        return made;
    }();
    return timer;
}

void press_interrupts(bool on) {
    itimerspec times = {};
    if (on) times = {{0, BETWEEN_PRESSES}, {0, PATIENCE}};
    timer_settime(interrupt_timer(), 0, &times, nullptr);
}

// A name relative to an open directory is inside because that directory is.
bool inside(std::string_view path) {
    if (!g_root) return true;
    for (size_t from = 0; from < path.size();) {
        const size_t end = std::min(path.find('/', from), path.size());
        if (path.substr(from, end - from) == "..") return false;
        from = end + 1;
    }
    if (!path.starts_with('/')) return true;
    return path.starts_with(*g_root) && (path.size() == g_root->size() || path[g_root->size()] == '/');
}

// The system call's result if every name is inside.
template <typename... Arguments>
int guarded(std::initializer_list<const char*> names, long call, Arguments... arguments) {
    for (const char* name : names) {
        if (name && inside(name)) continue;
        errno = EACCES;
        return -1;
    }
    return static_cast<int>(syscall(call, arguments...));
}

mode_t mode_behind(int flags, va_list& arguments) {
    return (flags & (O_CREAT | __O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
}

void* try_allocate(size_t size) {
    if (g_root && (size > MOST_MEMORY || g_memory + size > g_most_memory)) return nullptr;
    if (g_root && g_failing > 0 && --g_failing == 0) return nullptr;
    void* const memory = std::malloc(size > 0 ? size : 1);
    if (memory) g_memory += malloc_usable_size(memory);
    return memory;
}

void* allocate(size_t size) {
    void* const memory = try_allocate(size);
    if (!memory) throw std::bad_alloc();
    return memory;
}

void release(void* memory) {
    if (memory) g_memory -= malloc_usable_size(memory);
    std::free(memory);
}

}  // namespace

Guard::Guard(const std::string& root, size_t failing, std::function<void()> on_wait) {
    static const std::string* const kept = new std::string(root);
    g_on_wait = std::move(on_wait);
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit limit = {};
    getrlimit(RLIMIT_FSIZE, &limit);
    limit.rlim_cur = LARGEST_FILE;
    setrlimit(RLIMIT_FSIZE, &limit);
    g_most_memory = g_memory + MOST_MEMORY;
    g_failing = failing;
    g_kpe_abort_requested = 0;
    press_interrupts(true);
    g_root = kept;
}

Guard::~Guard() {
    g_root = nullptr;
    press_interrupts(false);
    g_kpe_abort_requested = 0;
    g_on_wait = nullptr;
    rlimit limit = {};
    getrlimit(RLIMIT_FSIZE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_FSIZE, &limit);
}

// In place of the program's own, which ends the process.
void kpe_exit(int status) { throw EndOfSession{status}; }

void* operator new(size_t size) { return allocate(size); }
void* operator new[](size_t size) { return allocate(size); }
void* operator new(size_t size, const std::nothrow_t&) noexcept { return try_allocate(size); }
void* operator new[](size_t size, const std::nothrow_t&) noexcept { return try_allocate(size); }
void operator delete(void* memory) noexcept { release(memory); }
void operator delete[](void* memory) noexcept { release(memory); }
void operator delete(void* memory, size_t) noexcept { release(memory); }
void operator delete[](void* memory, size_t) noexcept { release(memory); }
void operator delete(void* memory, const std::nothrow_t&) noexcept { release(memory); }
void operator delete[](void* memory, const std::nothrow_t&) noexcept { release(memory); }

// In place of the C library's, for all that is linked with this.
extern "C" {

int open(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = mode_behind(flags, arguments);
    va_end(arguments);
    return guarded({path}, SYS_openat, AT_FDCWD, path, flags, mode);
}
int openat(int directory, const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = mode_behind(flags, arguments);
    va_end(arguments);
    return guarded({path}, SYS_openat, directory, path, flags, mode);
}
int rename(const char* from, const char* to) noexcept { return guarded({from, to}, SYS_rename, from, to); }
int renameat(int from_directory, const char* from, int to_directory, const char* to) noexcept {
    return guarded({from, to}, SYS_renameat2, from_directory, from, to_directory, to, 0);
}
int renameat2(int from_directory, const char* from, int to_directory, const char* to, unsigned flags) noexcept {
    return guarded({from, to}, SYS_renameat2, from_directory, from, to_directory, to, flags);
}
int link(const char* from, const char* to) noexcept { return guarded({from, to}, SYS_link, from, to); }
int linkat(int from_directory, const char* from, int to_directory, const char* to, int flags) noexcept {
    // By this name kpe gives a nameless file that it opened itself its name.
    const char* const source = std::string_view(from).starts_with("/proc/self/fd/") ? to : from;
    return guarded({source, to}, SYS_linkat, from_directory, from, to_directory, to, flags);
}
int symlink(const char*, const char*) noexcept {
    errno = EACCES;
    return -1;
}
int unlink(const char* path) noexcept { return guarded({path}, SYS_unlink, path); }
int unlinkat(int directory, const char* path, int flags) noexcept {
    return guarded({path}, SYS_unlinkat, directory, path, flags);
}
int remove(const char* path) noexcept {
    const int removed = guarded({path}, SYS_unlink, path);
    return removed < 0 && errno == EISDIR ? guarded({path}, SYS_rmdir, path) : removed;
}
int mkdir(const char* path, mode_t mode) noexcept { return guarded({path}, SYS_mkdir, path, mode); }
int mkostemp(char*, int) {
    errno = EACCES;
    return -1;
}
int fsync(int) { return 0; }
int nanosleep(const timespec*, timespec*) { return 0; }
pid_t fork() noexcept {
    errno = EAGAIN;
    return -1;
}
// By its own name: the header says of ppoll that it only writes to fds.
int guarded_ppoll(pollfd* fds, nfds_t count, const timespec* timeout, const sigset_t* mask) __asm__("ppoll");
int guarded_ppoll(pollfd* fds, nfds_t count, const timespec* timeout, const sigset_t* mask) {
    const bool inside_a_key = timeout && timeout->tv_sec == 0 && timeout->tv_nsec == ESCAPE_DELAY;
    const bool waits = g_root && !inside_a_key;
    if (waits && (count != 1 || fds->events != POLLIN)) {
        g_kpe_abort_requested = 1;
        errno = EINTR;
        return -1;
    }
    if (waits && g_on_wait) {
        pollfd input = {fds->fd, POLLIN, 0};
        if (poll(&input, 1, 0) == 0) g_on_wait();
    }
    return static_cast<int>(syscall(SYS_ppoll, fds, count, timeout, mask, _NSIG / 8));
}
}
