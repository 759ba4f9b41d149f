#include "config/n3_rzconfig.h"
#include "system/ascii.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>
#include <fcntl.h>
#include <memory>
#include <string_view>
#include <unistd.h>
#include <vector>

namespace n3rz {
namespace {

[[maybe_unused]] constexpr const char* RUNTIME_LIBRARIES[] = {"librzrtl.so"};
constexpr const char* BLANKS = " \t";

// Upper case of the C locale, whatever the locale of the process is.

bool starts_with_any_case(std::string_view text, std::string_view prefix) {
    if (text.size() < prefix.size()) return false;
    for (size_t i = 0; i < prefix.size(); ++i)
        if (kpe_to_upper(text[i]) != kpe_to_upper(prefix[i])) return false;
    return true;
}

// The variable's value, or fallback when it is not set or empty.
std::string env_or(const char* name, const char* fallback) {
    const char* value = getenv(name);
    return value && *value ? value : fallback;
}

std::vector<std::string> candidate_files() {
    std::vector<std::string> files;
    for (const char* name : {"RZ_CONFIG", "RT_CONFIG"})
        if (std::string file = env_or(name, ""); !file.empty()) files.push_back(file);
    // A relative one would mean whatever directory the session was started in.
    if (std::string home = env_or("HOME", ""); home.starts_with('/')) files.push_back(home + "/SYS0/SYSMGR/CONFIG.INI");
    files.push_back("/etc/N3.config");
    const std::string root = env_or("RZREL", "/opt/rzrt");
    for (const char* name : {"CONFIG.INI", "Config", "Config2"})
        for (const std::string& directory :
             {root + "/syslib/", root + "/library/", std::string("/etc/"), std::string("/opt/rzrt/library/")})
            if (std::find(files.begin(), files.end(), directory + name) == files.end())  // it was no use there either
                files.push_back(directory + name);
    return files;
}

using File = std::unique_ptr<FILE, int (*)(FILE*)>;

// Opens a file or a pipe to read; null for everything else, because a directory holds no lines and a
// device may have no end. A FIFO that nobody writes to reads as empty instead of blocking.
File open_config(const std::string& path) {
    const int fd = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    struct stat st;
    if (fd >= 0 && fstat(fd, &st) == 0 && (S_ISREG(st.st_mode) || S_ISFIFO(st.st_mode)) && fcntl(fd, F_SETFL, 0) == 0) {
        if (FILE* file = fdopen(fd, "r")) return File(file, fclose);
    }
    if (fd >= 0) close(fd);
    return File(nullptr, fclose);
}

// The next line without its "\n", of any length and with any bytes; false at the end of the file.
bool read_line(FILE* file, std::string& line) {
    char* bytes = nullptr;
    size_t capacity = 0;
    const ssize_t length = getline(&bytes, &capacity, file);
    const std::unique_ptr<char, void (*)(void*)> owner(bytes, free);
    if (length <= 0) return false;
    line.assign(bytes, static_cast<size_t>(length));
    if (line.back() == '\n') line.pop_back();
    return true;
}

// Whether the line gives the key a value; sets value then.
bool parse_line(std::string_view line, std::string_view key, std::string& value) {
    const size_t start = line.find_first_not_of(BLANKS);
    if (start == std::string_view::npos || line[start] == '#' || line[start] == '[') return false;
    line.remove_prefix(start);
    if (!starts_with_any_case(line, key)) return false;
    line.remove_prefix(key.size());
    if (!line.empty() && line[0] != ' ' && line[0] != '\t') return false;

    line.remove_prefix(std::min(line.find_first_not_of(BLANKS), line.size()));
    std::string_view word = line.substr(0, line.find_first_of(BLANKS));
    if (word.size() >= 2 && word.front() == word.back() && (word[0] == '"' || word[0] == '\''))
        word = word.substr(1, word.size() - 2);
    value.assign(word);
    return true;
}

}  // namespace

std::string env_name(const char* tag, const char* suffix) {
    std::string name = tag ? tag : "";
    for (char& c : name) c = kpe_to_upper(c);
    return name + (suffix ? suffix : "");
}

const char* env_tagged(const char* tag, const char* suffix) { return getenv(env_name(tag, suffix).c_str()); }

bool config_lookup(const char* key, std::string& value, const char* tag) {
    if (env_tagged(tag, "_NO_RZCONFIG")) return false;
    const bool tracing = env_tagged(tag, "_RZ_DEBUG") != nullptr;
    const char* shown_tag = tag ? tag : "";
    if (!key) key = "";

    std::string line;
    for (const std::string& path : candidate_files()) {
        const File file = open_config(path);
        while (file && read_line(file.get(), line)) {
            if (!parse_line(line, key, value)) continue;
            if (tracing) fprintf(stderr, "%s: %s = [%s]  (from %s)\n", shown_tag, key, value.c_str(), path.c_str());
            return true;
        }
    }
    if (tracing) fprintf(stderr, "%s: %s not found in any RZ config file\n", shown_tag, key);
    return false;
}

bool config_is_on(const std::string& v) {
    if (v.empty()) return false;
    const char first = kpe_to_upper(v[0]);
    if (first == 'O') return v.size() > 1 && kpe_to_upper(v[1]) == 'N';
    return first == 'Y' || first == 'T' || first == '1';
}

bool runtime_present() {
#ifndef KPE_STATIC  // a program without a dynamic linker can load no library
    for (const char* name : RUNTIME_LIBRARIES)
        if (dlopen(name, RTLD_LAZY)) return true;  // stays loaded
#endif
    return false;
}

bool file_exists(const std::string& p) {
    struct stat st;
    return p.find('\0') == p.npos && kpe_stat(p.c_str(), &st) == 0;
}

}  // namespace n3rz

int kpe_stat(const char* path, struct stat* st) { return stat(path, st); }
