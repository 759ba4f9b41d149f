#include <dlfcn.h>
#include <fcntl.h>
#include <linux/aio_abi.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string_view>

// Preloaded into the program: makes one of its calls on files fail, or ends the program there.
//   KPE_FAULT_DIR      only calls on this directory and on what lies below it count
//   KPE_FAULT_LOG      descriptor to which each of them is written, a line: its name, its file, and "careless"
//                      for a file made without O_EXCL or O_NOFOLLOW, "exposed" for text put where others can read
//   KPE_FAULT_AT       which of them is hit, from 1
//   KPE_FAULT          what it does: an error by its name; "short": half of a write; "before": the program is
//                      killed; "full": half of a write, from then on no room for anything; "dead": from
//                      then on every call is EIO; "stuck": no fsync anywhere ever ends, whatever signals come;
//                      "slow": large writes take most of a second, and make the file "slow"; "note syncs": what the
//                      kernel is asked to sync is written to the file "syncs"
//   KPE_FAULT_SECOND   how many milliseconds a second of alarm() lasts
//   KPE_FAULT_WITHOUT  what the file system does not know, as words: nameless files, a rename that never replaces
//                      ("noreplace"), hard links ("links")
// Without the C++ library, whose loading would take longer than the program's run.

namespace {

constexpr size_t LARGE = 60000;  // bytes: no line of a journal

enum class Kind { Other, Write, Create };

struct Decision {
    int error = 0;
    bool half = false;
};

std::string_view variable(const char* name) {
    const char* const value = getenv(name);
    return value ? value : "";
}

constinit std::string_view directory, fault, without;
int log_to = -1;
long calls = 0, hit = 0;
unsigned second = 0;

__attribute__((constructor)) void read_settings() {
    directory = variable("KPE_FAULT_DIR");
    fault = variable("KPE_FAULT");
    without = variable("KPE_FAULT_WITHOUT");
    hit = strtol(variable("KPE_FAULT_AT").data(), nullptr, 10);
    second = static_cast<unsigned>(strtol(variable("KPE_FAULT_SECOND").data(), nullptr, 10));
    log_to = static_cast<int>(strtol(variable("KPE_FAULT_LOG").data(), nullptr, 10));
}

// The file's name, as far as the kernel tells it.
struct Place {
    char name[PATH_MAX] = "";

    explicit Place(int fd) {
        char link[64];
        snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
        follow(link);
    }
    Place(int dir, const char* path) {
        if (std::string_view(path).starts_with("/proc/")) {
            follow(path);
            return;
        }
        if (dir == AT_FDCWD && *path != '/') follow("/proc/self/cwd");
        if (dir != AT_FDCWD && *path != '/') *this = Place(dir);
        const size_t size = strlen(name);
        snprintf(name + size, sizeof name - size, "%s%s", *path == '/' ? "" : "/", path);
    }
    bool counts() const {
        const std::string_view path = name;
        return !directory.empty() && path.starts_with(directory) &&
               (name[directory.size()] == '/' || name[directory.size()] == '\0');
    }

private:
    void follow(const char* link) {
        const ssize_t size = readlink(link, name, sizeof name - 1);
        name[size < 0 ? 0 : size] = '\0';
    }
};

int error_of(std::string_view name) {
    return name == "ENOSPC" ? ENOSPC : name == "EIO" ? EIO : name == "EINTR" ? EINTR : name == "EACCES" ? EACCES : 0;
}

Decision decide(const char* call, const Place& place, Kind kind = Kind::Other, const char* note = "") {
    if (!place.counts()) return {};
    const int before = errno;
    if (log_to > 0) dprintf(log_to, "%s %s %s\n", call, place.name + directory.size() + 1, note);
    errno = before;
    const long n = ++calls;
    if (hit == 0 || n < hit) return {};
    const bool writes = kind == Kind::Write;
    if (fault == "dead") return {EIO};
    if (fault == "full" && n > hit) return {kind == Kind::Other ? 0 : ENOSPC};
    if (n > hit) return {};
    if (fault == "full") return {kind == Kind::Create ? ENOSPC : 0, writes};
    if (fault == "short") return {0, writes};
    if (fault == "before") raise(SIGKILL);
    return {error_of(fault)};
}

// Makes the call unless it has to fail.
template <class Call>
auto make(const Decision& decision, Call call) -> decltype(call()) {
    if (decision.error != 0) {
        errno = decision.error;
        return -1;
    }
    return call();
}

const char* exposed(int fd) {
    struct stat st;
    return fstat(fd, &st) == 0 && S_ISREG(st.st_mode) && (st.st_mode & 077) != 0 ? "exposed" : "";
}

void note(const char* file, const char* text) {
    const int fd = open(file, O_WRONLY | O_CREAT | O_APPEND, 0600);
    dprintf(fd, "%s", text);
    close(fd);
}

void take_time(size_t bytes) {
    if (fault != "slow" || bytes < LARGE) return;
    note("slow", "");
    timespec left = {0, 800'000'000};
    while (nanosleep(&left, &left) != 0) {
    }
}

void note_sync(int fd) {
    struct stat st;
    const Place place(fd);
    if (fstat(fd, &st) != 0) return;
    note("syncs", S_ISDIR(st.st_mode) ? "." : basename(place.name));
    note("syncs", "\n");
}

// Whether the file system is one that does not know of this; errno says so then.
bool lacks(const char* what, int error) {
    if (without.find(what) == std::string_view::npos) return false;
    errno = error;
    return true;
}

}  // namespace

#define NEXT(name)                                                                                          \
    [] {                                                                                                    \
        static decltype(&::name) const next = reinterpret_cast<decltype(&::name)>(dlsym(RTLD_NEXT, #name)); \
        return next;                                                                                        \
    }()

extern "C" {

int openat(int dir, const char* path, int flags, ...) {
    va_list more;
    va_start(more, flags);
    const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(more, mode_t) : 0;
    va_end(more);
    const bool nameless = (flags & O_TMPFILE) == O_TMPFILE, creates = nameless || (flags & O_CREAT) != 0;
    if (nameless && lacks("nameless", EOPNOTSUPP)) return -1;
    const bool careless = (flags & O_CREAT) != 0 && ((flags & O_EXCL) == 0 || (flags & O_NOFOLLOW) == 0);
    const Decision decision =
        decide("open", Place(dir, path), creates ? Kind::Create : Kind::Other, careless ? "careless" : "");
    return make(decision, [&] { return NEXT(openat)(dir, path, flags, mode); });
}

int open(const char* path, int flags, ...) {
    va_list more;
    va_start(more, flags);
    const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(more, mode_t) : 0;
    va_end(more);
    return openat(AT_FDCWD, path, flags, mode);
}

int close(int fd) {
    const Decision decision = decide("close", Place(fd));
    if (decision.error != 0) NEXT(close)(fd);
    return make(decision, [&] { return NEXT(close)(fd); });
}

// The calls on an open file that fail or do not.
#define MAY_FAIL(type, name, parameters, ...)                                                         \
    type name parameters {                                                                            \
        return make(decide(#name, Place(fd)), [&]() -> type { return NEXT(name)(fd, __VA_ARGS__); }); \
    }

MAY_FAIL(ssize_t, read, (int fd, void* bytes, size_t size), bytes, size)
MAY_FAIL(ssize_t, pread, (int fd, void* bytes, size_t size, off_t at), bytes, size, at)
MAY_FAIL(int, ftruncate, (int fd, off_t size), size)
MAY_FAIL(int, fchmod, (int fd, mode_t mode), mode)
MAY_FAIL(int, fchown, (int fd, uid_t owner, gid_t group), owner, group)

int fsync(int fd) {
    while (fault == "stuck") pause();
    return make(decide("fsync", Place(fd)), [&] { return NEXT(fsync)(fd); });
}

ssize_t write(int fd, const void* bytes, size_t size) {
    const Decision decision = decide("write", Place(fd), Kind::Write, exposed(fd));
    return make(decision, [&] { return NEXT(write)(fd, bytes, decision.half ? (size + 1) / 2 : size); });
}

ssize_t pwrite(int fd, const void* bytes, size_t size, off_t at) {
    take_time(size);
    const Decision decision = decide("pwrite", Place(fd), Kind::Write, exposed(fd));
    return make(decision, [&] { return NEXT(pwrite)(fd, bytes, decision.half ? (size + 1) / 2 : size, at); });
}

ssize_t writev(int fd, const iovec* pieces, int count) {
    take_time(pieces[0].iov_len);
    const Decision decision = decide("writev", Place(fd), Kind::Write, exposed(fd));
    return make(decision, [&] {
        if (!decision.half) return NEXT(writev)(fd, pieces, count);
        const iovec& piece = pieces[pieces[0].iov_len == 0 && count > 1 ? 1 : 0];
        return NEXT(write)(fd, piece.iov_base, (piece.iov_len + 1) / 2);
    });
}

ssize_t copy_file_range(int from, off_t* from_at, int fd, off_t* at, size_t size, unsigned flags) {
    const Decision decision = decide("copy_file_range", Place(fd), Kind::Write, exposed(fd));
    return make(decision, [&] {
        return NEXT(copy_file_range)(from, from_at, fd, at, decision.half ? (size + 1) / 2 : size, flags);
    });
}

int ioctl(int fd, unsigned long request, ...) {
    va_list more;
    va_start(more, request);
    void* const argument = va_arg(more, void*);
    va_end(more);
    return make(decide("ioctl", Place(fd)), [&] { return NEXT(ioctl)(fd, request, argument); });
}

long syscall(long number, ...) {
    va_list more;
    va_start(more, number);
    long args[6];
    for (long& arg : args) arg = va_arg(more, long);
    va_end(more);
    if (number == SYS_io_submit && fault == "note syncs")
        note_sync(static_cast<int>((*reinterpret_cast<iocb**>(args[2]))->aio_fildes));
    return NEXT(syscall)(number, args[0], args[1], args[2], args[3], args[4], args[5]);
}

unsigned alarm(unsigned seconds) { return second == 0 ? NEXT(alarm)(seconds) : ualarm(seconds * second * 1000, 0); }

int linkat(int from_dir, const char* from, int to_dir, const char* to, int flags) {
    const bool named = !std::string_view(from).starts_with("/proc/");
    if (named && lacks("links", EPERM)) return -1;
    const Decision decision = decide("link", Place(to_dir, to), Kind::Create);
    return make(decision, [&] { return NEXT(linkat)(from_dir, from, to_dir, to, flags); });
}

int renameat2(int from_dir, const char* from, int to_dir, const char* to, unsigned flags) {
    if (flags != 0 && lacks("noreplace", EINVAL)) return -1;
    const Decision decision = decide("rename", Place(to_dir, to));
    return make(decision, [&] { return NEXT(renameat2)(from_dir, from, to_dir, to, flags); });
}

int renameat(int from_dir, const char* from, int to_dir, const char* to) {
    return renameat2(from_dir, from, to_dir, to, 0);
}

int unlinkat(int dir, const char* path, int flags) {
    return make(decide("unlink", Place(dir, path)), [&] { return NEXT(unlinkat)(dir, path, flags); });
}

int unlink(const char* path) { return unlinkat(AT_FDCWD, path, 0); }

}  // extern "C"
