#include <algorithm>
#include <fcntl.h>
#include <set>
#include <string>
#include <unistd.h>

#include "config/n3_rzconfig.h"
#include "fuzz/session.h"
#include "fuzz/targets.h"

namespace {

using std::string;

constexpr size_t LONGEST_NAME = 40, MOST_FILES = 12;
constexpr unsigned LARGEST_GAP = 100;

// Where the ";" of a version suffix stands, or the end of the name.
size_t suffix_at(const string& name) {
    size_t at = name.size();
    while (at > 0 && name[at - 1] >= '0' && name[at - 1] <= '9') --at;
    return at < name.size() && at > 0 && name[at - 1] == ';' ? at - 1 : name.size();
}

// The files of the directory, and the rules over their names.
struct NaiveVersions {
    std::set<string> files;

    bool has(const string& base, unsigned version) const {
        return files.contains(base + ";" + std::to_string(version)) || (version == 1 && files.contains(base));
    }
    unsigned highest(const string& base) const {
        unsigned found = has(base, 1) ? 1 : 0;
        for (unsigned version = 2; version <= found + LARGEST_GAP + 1; ++version)
            if (has(base, version)) found = version;
        return found;
    }
    string read(const string& name) const {
        const size_t at = suffix_at(name);
        const string base = name.substr(0, at);
        if (at == name.size()) return highest(name) < 2 ? name : name + ";" + std::to_string(highest(name));
        const size_t digit = name.find_first_not_of('0', at + 1);
        if (digit != string::npos && (digit + 1 < name.size() || name[digit] > '1')) return name;
        return files.contains(base) ? base : files.contains(base + ";1") ? base + ";1" : name;
    }
    // Versions of few digits only.
    string write(const string& name) const {
        const size_t at = suffix_at(name);
        string base = name.substr(0, at);
        if (at == name.size() && highest(base) == 0) return base;
        const unsigned long given = at == name.size() ? highest(base) : std::stoul(name.substr(at + 1));
        unsigned long next = std::max(given, 1UL) + 1;
        while (files.contains(base + ";" + std::to_string(next))) ++next;
        return base + ";" + std::to_string(next);
    }
};

// A name of a file in the directory, or nothing.
string file_name(std::string_view bytes) {
    const string name(bytes.substr(0, LONGEST_NAME));
    const bool usable = name.find('/') == name.npos && name.find('\0') == name.npos && name != "." && name != "..";
    return usable ? name : "";
}

}  // namespace

// Lines: the name that is asked about, and names of files that are there.
void fuzz_versions(std::string_view input) {
    static NaiveVersions there;
    fuzz_directory();
    for (const string& name : there.files) unlink(name.c_str());
    there.files.clear();
    const string name = file_name(fuzz_take(input, '\n'));
    while (!input.empty() && there.files.size() < MOST_FILES) {
        const string file = file_name(fuzz_take(input, '\n'));
        if (file.empty()) continue;
        const int fd = open(file.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
        fuzz_check(fd >= 0, "a file can be made", file);
        close(fd);
        there.files.insert(file);
    }
    if (name.empty()) return;

    const size_t at = suffix_at(name);
    fuzz_check(n3rz::strip_version(name) == name.substr(0, at), "the suffix is cut off", name);
    fuzz_check(n3rz::highest_version(name) == static_cast<int>(there.highest(name)), "the highest version", name);
    fuzz_check(n3rz::resolve_read_path(name, true) == there.read(name), "the name to read", name);
    const string target = n3rz::resolve_write_path(name, true);
    fuzz_check(!there.files.contains(target), "no version is overwritten", name);
    fuzz_check(n3rz::strip_version(target) == name.substr(0, at) || target == name, "only the version changes", name);
    if (name.size() - at < 12) fuzz_check(target == there.write(name), "the name to write", name);
    fuzz_check(n3rz::resolve_read_path(name, false) == name && n3rz::resolve_write_path(name, false) == name,
               "without versions a name is itself", name);
}
