#include "editor/reasons.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <sys/stat.h>

namespace {

// Reasons that do not depend on what stands under the name. "%" is the name.
struct Reason {
    int error;
    std::string_view text;
};
constexpr Reason REASONS[] = {
    {ENOSPC, "The disk is full"},
    {EDQUOT, "The disk quota is used up"},
    {EROFS, "The file system of % is read-only"},
    {EFBIG, "The file would be larger than is allowed"},
    {EISDIR, "% is a directory"},
    {ENAMETOOLONG, "The name is too long"},
    {ELOOP, "Links of % lead in a circle"},
    {ETXTBSY, "% is a program that is running"},
    {ESTALE, "Something else stands there now: %"},
    {ENOMEM, "Not enough memory"},
    {EFAULT, "A part of the text cannot be read from the disk any more"},
    {ENXIO, "There is no device behind %"},
    {EPIPE, "Nobody reads % any more"},
};

std::string reason(int error, const std::string& path) {
    const auto row =
        std::find_if(std::begin(REASONS), std::end(REASONS), [&](const Reason& r) { return r.error == error; });
    if (row == std::end(REASONS)) return path + ": " + std::strerror(error);
    std::string text(row->text);
    if (const size_t place = text.find('%'); place != text.npos) text.replace(place, 1, path);
    return text;
}

// "40 GB", "1.5 GB", "250 MB".
std::string size_in_words(size_t bytes) {
    const bool large = bytes >= 1'000'000'000;
    const double size = static_cast<double>(bytes) / (large ? 1e9 : 1e6);
    char words[64];
    snprintf(words, sizeof words, "%.*f %s", size < 9.95 ? 1 : 0, size, large ? "GB" : "MB");
    return words;
}

bool is_permission(int error) { return error == EACCES || error == EPERM; }

std::string directory_of(const std::string& path) {
    const size_t slash = path.rfind('/');
    if (slash == path.npos) return "the current directory";
    return slash == 0 ? "/" : path.substr(0, slash);
}

}  // namespace

std::string kpe_why_unwritten(int error, const std::string& path) {
    struct stat there;
    const bool exists = lstat(path.c_str(), &there) == 0;
    if (is_permission(error) && exists) return "No permission to write " + path;
    if (is_permission(error)) return "No permission to write in " + directory_of(path);
    if (error == ENOENT) return "There is no directory " + directory_of(path);
    if (error == ENOTDIR) return "Not a directory: " + directory_of(path);
    return reason(error, path);
}

std::string kpe_why_unread(int error, const std::string& path) {
    if (is_permission(error)) return "No permission to read " + path;
    return reason(error, path);
}

// The size of the file is what its user knows; if there would be room for that, what the index needs as well is told.
std::string kpe_too_large(const MemoryNeed& need) {
    const size_t size = need.file > need.free ? need.file : need.needed;
    return "Too large for the memory here: " + size_in_words(size) + ", " + size_in_words(need.free) + " free";
}
