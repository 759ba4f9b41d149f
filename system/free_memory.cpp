#include "system/free_memory.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

namespace {

// The files of the kernel that are read here are short; what is behind the first bytes is not needed.
std::string beginning_of(const std::string& path) {
    char bytes[8192];
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return {};
    const ssize_t got = read(fd, bytes, sizeof bytes);
    close(fd);
    return {bytes, got > 0 ? static_cast<size_t>(got) : 0};
}

// The number at the start; none if there is no digit, as in "max", which stands for no limit.
size_t number_in(std::string_view text, size_t none) {
    text.remove_prefix(std::min(text.find_first_not_of(" \t"), text.size()));
    if (text.empty() || text[0] < '0' || text[0] > '9') return none;
    return std::strtoull(std::string(text.substr(0, text.find_first_of(" \t\n"))).c_str(), nullptr, 10);
}

// The number behind a word at the start of a line.
size_t number_behind(std::string_view word, const std::string& text, size_t none) {
    const size_t at = ("\n" + text).find("\n" + std::string(word));
    return at == text.npos ? none : number_in(std::string_view(text).substr(at + word.size()), none);
}

size_t difference(size_t limit, size_t used) { return limit - std::min(limit, used); }

size_t free_of_machine() {
    const std::string info = beginning_of("/proc/meminfo");
    const size_t available = number_behind("MemAvailable:", info, SIZE_MAX);
    if (available == SIZE_MAX) return SIZE_MAX;
    return (available + number_behind("SwapFree:", info, 0)) << 10;
}

size_t free_of_process() {
    const std::string pages = beginning_of("/proc/self/statm");  // size resident shared text 0 data 0
    const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    size_t data_at = 0;
    for (int word = 0; word < 5; ++word) data_at = std::min(pages.find(' ', data_at), pages.size() - 1) + 1;
    struct Limit {
        decltype(RLIMIT_AS) what;
        size_t used;
    };
    size_t least = SIZE_MAX;
    for (const Limit& limit : {Limit{RLIMIT_AS, number_in(pages, 0) * page},
                               Limit{RLIMIT_DATA, number_in(std::string_view(pages).substr(data_at), 0) * page}}) {
        rlimit set{};
        if (getrlimit(limit.what, &set) == 0 && set.rlim_cur != RLIM_INFINITY)
            least = std::min(least, difference(set.rlim_cur, limit.used));
    }
    return least;
}

// The names of the files in which the two versions of control groups tell limit and use.
struct Group {
    const char *mounted, *limit, *used, *inactive, *active;
};
constexpr Group GROUPS[] = {
    {"/sys/fs/cgroup", "memory.max", "memory.current", "inactive_file", "active_file"},
    {"/sys/fs/cgroup/unified", "memory.max", "memory.current", "inactive_file", "active_file"},
    {"/sys/fs/cgroup/memory", "memory.limit_in_bytes", "memory.usage_in_bytes", "total_inactive_file",
     "total_active_file"},
};

// Of the group and of all groups around it. Pages of files count as used, but the kernel can free them.
size_t free_of_group(const Group& names, std::string path) {
    size_t least = SIZE_MAX;
    for (bool last = false; !last; path.resize(last ? 0 : path.rfind('/'))) {
        last = path.find_last_not_of('/') == path.npos;
        const std::string group = names.mounted + (last ? "/" : path + "/");
        const size_t limit = number_in(beginning_of(group + names.limit), SIZE_MAX);
        if (limit == SIZE_MAX) continue;
        const std::string stat = beginning_of(group + "memory.stat");
        const size_t files = number_behind(std::string(names.inactive) + " ", stat, 0) +
                             number_behind(std::string(names.active) + " ", stat, 0);
        least = std::min(least, difference(limit, difference(number_in(beginning_of(group + names.used), 0), files)));
    }
    return least;
}

// Its lines are "number:controllers:path"; version 2 names no controllers.
size_t free_of_groups() {
    const std::string lines = beginning_of("/proc/self/cgroup");
    size_t least = SIZE_MAX;
    for (std::string_view rest = lines; !rest.empty();) {
        const std::string_view line = rest.substr(0, rest.find('\n'));
        rest.remove_prefix(std::min(line.size() + 1, rest.size()));
        const size_t controllers = std::min(line.find(':'), line.size() - 1) + 1;
        const size_t path = line.find(':', controllers);
        if (path == line.npos) continue;
        const std::string_view names = line.substr(controllers, path - controllers);
        const bool old_memory = ("," + std::string(names) + ",").find(",memory,") != std::string::npos;
        if (!names.empty() && !old_memory) continue;
        for (const Group& group : GROUPS)
            if (old_memory == (&group == &GROUPS[2]))
                least = std::min(least, free_of_group(group, std::string(line.substr(path + 1))));
    }
    return least;
}

}  // namespace

size_t kpe_free_memory() { return std::min({free_of_machine(), free_of_process(), free_of_groups()}); }
