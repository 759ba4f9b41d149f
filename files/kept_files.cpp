#include "files/kept_files.h"

#include <algorithm>
#include <fcntl.h>
#include <functional>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>

#include "files/file_place.h"
#include "files/rescue_file.h"
#include "files/state_directory.h"

namespace {

constexpr const char* DIGITS = "0123456789";

// The last piece of text, in front of which the sign stands; text loses both.
std::string take_last(std::string& text, char sign) {
    const size_t at = text.rfind(sign);
    if (at == text.npos) return "";
    std::string last = text.substr(at + 1);
    text.resize(at);
    return last;
}

bool is_number(const std::string& text) { return !text.empty() && text.find_first_not_of(DIGITS) == text.npos; }

// "notes.txt-MAIN-20261122-140501-4711"
bool take_rescue_name(std::string name, KeptFile& file) {
    for (int numbers = 0; numbers < 3; ++numbers)
        if (!is_number(take_last(name, '-'))) return false;
    file.buffer = take_last(name, '-');
    file.name = name;
    return !file.buffer.empty();
}

// "notes.txt.18ea54a4f11a50ab-75f6-1", as kpe_unlikely_name makes it.
bool take_copy_name(std::string name, KeptFile& file) {
    const std::string unlikely = take_last(name, '.');
    const bool made = std::count(unlikely.begin(), unlikely.end(), '-') == 2 &&
                      unlikely.find_first_not_of("0123456789abcdef-") == unlikely.npos;
    if (!made || name.empty()) return false;
    file.name = name;
    return true;
}

void add_files(const std::string& directory, KeptFile::Kind kind, bool (*take_name)(std::string, KeptFile&),
               std::vector<KeptFile>& files) {
    kpe_each_entry(directory, [&](int fd, const char* name) {
        KeptFile file;
        struct stat st;
        if (fstatat(fd, name, &st, AT_SYMLINK_NOFOLLOW) != 0 || !S_ISREG(st.st_mode) || st.st_uid != geteuid() ||
            !take_name(name, file))
            return;
        file.kind = kind;
        file.path = directory + name;
        file.changed = st.st_mtim;
        file.size = static_cast<uint64_t>(st.st_size);
        files.push_back(std::move(file));
    });
}

}  // namespace

std::vector<KeptFile> kpe_kept_files() {
    std::vector<std::string> directories = kpe_state_directories();
    if (const std::string runtime = kpe_env_directory("XDG_RUNTIME_DIR"); !runtime.empty())
        directories.push_back(runtime + "/kpe/");
    std::vector<KeptFile> files;
    for (const std::string& directory : directories) {
        for (const LogFile& log : kpe_list_logs(directory + "recovery/")) {
            KeptFile file;
            file.path = log.path;
            file.end = log.end;
            file.live = log.live;
            file.changed = log.changed;
            file.size = log.size;
            files.push_back(std::move(file));
        }
        add_files(directory, KeptFile::Kind::SafetyCopy, take_copy_name, files);
    }
    for (const std::string& directory : kpe_rescue_directories())
        add_files(directory, KeptFile::Kind::Rescue, take_rescue_name, files);
    std::sort(files.begin(), files.end(), [](const KeptFile& a, const KeptFile& b) {
        return a.changed.tv_sec != b.changed.tv_sec ? a.changed.tv_sec > b.changed.tv_sec
                                                    : a.changed.tv_nsec > b.changed.tv_nsec;
    });
    return files;
}
