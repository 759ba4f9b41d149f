#include "buffer/rescue_file.h"

#include <array>
#include <ctime>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "buffer/state_directory.h"

namespace {

constexpr size_t LONGEST_PART = 90;  // bytes: two parts, time and process stay below the 255 of a file name
constexpr mode_t OWNER_ONLY = 0600, OWNERS_DIRECTORY = 0700;

std::string local_time() {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    std::array<char, 32> text{};
    return {text.data(), std::strftime(text.data(), text.size(), "%Y%m%d-%H%M%S", &local)};
}

bool is_continuation(unsigned char c) { return (c & 0xc0) == 0x80; }

// How many bytes follow the first one of a UTF-8 character; 0 for any other byte.
int bytes_behind(unsigned char c) { return c < 0xc2 || c > 0xf4 ? 0 : c < 0xe0 ? 1 : c < 0xf0 ? 2 : 3; }

// The directory, made private; one that somebody put there as a link is none.
FileHandle open_directory(const std::string& path) {
    kpe_make_directories(path);
    const std::string plain = path.substr(0, path.size() - 1);  // behind a "/" a link would be followed
    FileHandle directory(open(plain.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    struct stat st;
    if (directory.is_open() && fstat(directory.fd(), &st) == 0 && (st.st_mode & 07777) != OWNERS_DIRECTORY)
        fchmod(directory.fd(), OWNERS_DIRECTORY);
    return directory;
}

}  // namespace

std::string kpe_safe_name(std::string_view name) {
    size_t size = std::min(name.size(), LONGEST_PART);
    while (size < name.size() && size > 0 && is_continuation(static_cast<unsigned char>(name[size]))) --size;
    std::string safe;
    int inside = 0;  // bytes yet to come of a character
    for (const char byte : name.substr(0, size)) {
        const auto c = static_cast<unsigned char>(byte);
        // 0x80 to 0x9f control terminals that take them as bytes of their own, and as characters, behind 0xc2.
        const bool control = c < ' ' || c == 0x7f || (c >= 0x80 && c < 0xa0 && (inside == 0 || safe.back() == '\xc2'));
        inside = inside > 0 && is_continuation(c) ? inside - 1 : bytes_behind(c);
        if (control && !safe.empty() && safe.back() == '\xc2') safe.back() = '_';
        safe += control || c == '/' ? '_' : byte;
    }
    if (safe.starts_with('.') || safe.starts_with('-')) safe.front() = '_';
    return safe;
}

FileHandle kpe_make_rescue_file(const std::string& edited, const std::string& buffer, std::string& path) {
    path = kpe_state_directories().empty() ? "" : kpe_state_directories().front();
    if (path.empty()) return {};
    path += "rescue/";
    const FileHandle directory = open_directory(path);
    if (!directory.is_open()) return {};
    const std::string name = kpe_safe_name(edited.substr(edited.rfind('/') + 1)) + "-" + kpe_safe_name(buffer) + "-" +
                             local_time() + "-" + std::to_string(getpid());
    FileHandle file;
    for (int tries = 1; tries <= 1000 && !file.is_open(); ++tries) {
        const std::string free_name = tries == 1 ? name : name + "-" + std::to_string(tries);
        constexpr int FLAGS = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
        file = FileHandle(openat(directory.fd(), free_name.c_str(), FLAGS, OWNER_ONLY));
        if (file.is_open()) path += free_name;
        if (!file.is_open() && errno != EEXIST) break;
    }
    if (file.is_open()) fchmod(file.fd(), OWNER_ONLY);  // whatever the umask
    return file;
}
