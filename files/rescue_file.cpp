#include "files/rescue_file.h"

#include <array>
#include <ctime>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include "files/file_writer.h"
#include "files/state_directory.h"
#include "system/ascii.h"
#include "system/file_work.h"

namespace {

constexpr size_t LONGEST_PART = 90;  // bytes: two parts, time and process stay below the 255 of a file name
constexpr mode_t OWNER_ONLY = 0600;

std::string local_time() {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    std::array<char, 32> text{};
    return {text.data(), std::strftime(text.data(), text.size(), "%Y%m%d-%H%M%S", &local)};
}

// How many bytes follow the first one of a UTF-8 character; 0 for any other byte.
int bytes_behind(unsigned char c) { return c < 0xc2 || c > 0xf4 ? 0 : c < 0xe0 ? 1 : c < 0xf0 ? 2 : 3; }

// A new file in the directory whose name begins with name; path is its path.
FileHandle make_file(const FileHandle& directory, const std::string& name, std::string& path) {
    FileHandle file;
    std::string free_name = name;
    for (int tries = 1; tries <= 1000 && !file.is_open(); ++tries) {
        if (tries > 1) free_name = name + "-" + std::to_string(tries);
        constexpr int FLAGS = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
        file = FileHandle(openat(directory.fd(), free_name.c_str(), FLAGS, OWNER_ONLY));
        if (!file.is_open() && errno != EEXIST) break;
    }
    path += free_name;
    if (file.is_open()) fchmod(file.fd(), OWNER_ONLY);  // whatever the umask
    return file;
}

RescuedText write_text(const std::string& directory_path, const std::string& name, const KpeWriteText& write) {
    RescuedText text;
    if (const FileHandle directory = kpe_open_private_directory(directory_path); directory.is_open()) {
        text.path = directory_path;
        text.file = make_file(directory, name, text.path);
    }
    const FileWork work(text.path);
    text.whole = text.file.is_open() && write(text.file.fd());
    if (!text.whole) text.error = errno;
    return text;
}

off_t size_of(const RescuedText& text) { return text.file.is_open() ? lseek(text.file.fd(), 0, SEEK_CUR) : 0; }

// With its directory, if that is empty then.
void remove_text(const RescuedText& text) {
    if (text.path.empty()) return;
    if (text.file.is_open()) unlink(text.path.c_str());
    rmdir(text.path.substr(0, text.path.rfind('/')).c_str());
}

std::string own_directory(const std::string& shared) {
    return shared + "kpe-rescue-" + std::to_string(geteuid()) + "/";
}

// Directories in shared directories: somebody else may have taken the first name.
void add_shared(std::vector<std::string>& directories, const std::string& shared) {
    std::string own = own_directory(shared);
    directories.push_back(own);
    own.back() = '-';
    directories.push_back(kpe_unlikely_name(own) + "/");
}

std::vector<std::string> rescue_directories(const std::string& edited) {
    std::vector<std::string> directories = kpe_state_directories();
    for (std::string& directory : directories) directory += "rescue/";
    for (const std::string& shared : kpe_temporary_directories()) add_shared(directories, shared);
    if (!edited.empty() && kpe_lives_in_memory(edited)) {
        if (const std::string runtime = kpe_env_directory("XDG_RUNTIME_DIR"); !runtime.empty())
            directories.insert(directories.begin(), runtime + "/kpe/rescue/");
        add_shared(directories, "/dev/shm/");
        kpe_keep_in_memory(directories);
    }
    return directories;
}

}  // namespace

std::string kpe_safe_name(std::string_view name) {
    size_t size = std::min(name.size(), LONGEST_PART);
    while (size < name.size() && size > 0 && kpe_is_continuation(name[size])) --size;
    std::string safe;
    int inside = 0;  // bytes yet to come of a character
    for (const char byte : name.substr(0, size)) {
        const auto c = static_cast<unsigned char>(byte);
        // 0x80 to 0x9f control terminals that take them as bytes of their own, and as characters, behind 0xc2.
        const bool control = c < ' ' || c == 0x7f || (c >= 0x80 && c < 0xa0 && (inside == 0 || safe.back() == '\xc2'));
        inside = inside > 0 && kpe_is_continuation(byte) ? inside - 1 : bytes_behind(c);
        if (control && !safe.empty() && safe.back() == '\xc2') safe.back() = '_';
        safe += control || c == '/' ? '_' : byte;
    }
    if (safe.starts_with('.') || safe.starts_with('-')) safe.front() = '_';
    return safe;
}

std::vector<std::string> kpe_rescue_directories() {
    std::vector<std::string> directories = kpe_state_directories();
    for (std::string& directory : directories) directory += "rescue/";
    if (const std::string runtime = kpe_env_directory("XDG_RUNTIME_DIR"); !runtime.empty())
        directories.push_back(runtime + "/kpe/rescue/");
    for (const std::string& shared : kpe_temporary_directories()) directories.push_back(own_directory(shared));
    directories.push_back(own_directory("/dev/shm/"));
    return directories;
}

RescuedText kpe_rescue_text(const std::string& edited, const std::string& buffer, const KpeWriteText& write) {
    const std::string name = kpe_safe_name(edited.substr(edited.rfind('/') + 1)) + "-" + kpe_safe_name(buffer) + "-" +
                             local_time() + "-" + std::to_string(getpid());
    RescuedText longest;
    int error = 0;
    for (const std::string& directory : rescue_directories(edited)) {
        RescuedText text = write_text(directory, name, write);
        if (error == 0) error = text.error;
        if (size_of(text) > size_of(longest)) std::swap(text, longest);
        remove_text(text);
        if (longest.whole) break;
    }
    longest.error = error;
    return longest;
}
