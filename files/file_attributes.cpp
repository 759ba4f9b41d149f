#include "files/file_attributes.h"
#include "system/ascii.h"

#include <algorithm>
#include <cerrno>
#include <optional>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace {

constexpr const char* ACCESS_LIST = "system.posix_acl_access";
constexpr const char* UNFINISHED = "user.kpe.unfinished";
// The mark, and seals over the content: they belong to the old file.
constexpr std::string_view NOT_COPIED[] = {"security.ima", "security.evm", UNFINISHED};

// What read fills, whose size may change between asking for it and reading it; none with errno set.
template <class Read>
std::optional<std::string> read_sized(Read read) {
    for (;;) {
        ssize_t size = read(nullptr, 0);
        if (size < 0) return std::nullopt;
        std::string bytes(static_cast<size_t>(size), '\0');
        if (size == 0) return bytes;
        size = read(bytes.data(), bytes.size());
        if (size < 0 && errno == ERANGE) continue;
        if (size < 0) return std::nullopt;
        bytes.resize(static_cast<size_t>(size));
        return bytes;
    }
}

std::optional<std::string> attribute(int fd, const char* name) {
    return read_sized([&](char* bytes, size_t size) { return fgetxattr(fd, name, bytes, size); });
}

bool copy_attribute(int from, int to, const char* name) {
    if (std::ranges::find(NOT_COPIED, std::string_view(name)) != std::end(NOT_COPIED)) return true;
    const std::optional<std::string> value = attribute(from, name);
    if (!value) return errno == ENODATA;
    return attribute(to, name) == value || fsetxattr(to, name, value->data(), value->size(), 0) == 0;
}

// A directory may give every new file an access list of its own.
bool drop_access_list(int fd) { return fremovexattr(fd, ACCESS_LIST) == 0 || errno == ENODATA || errno == EOPNOTSUPP; }

std::string inode_of(int fd) {
    struct stat st;
    return fstat(fd, &st) == 0 ? std::to_string(st.st_ino) : "";
}

bool copy_extended(int from, int to) {
    const auto names = read_sized([&](char* bytes, size_t size) { return flistxattr(from, bytes, size); });
    if (!names) return errno == EOPNOTSUPP || errno == ENOSYS;
    bool has_access_list = false;
    for (size_t at = 0; at < names->size();) {
        const std::string name = names->c_str() + at;
        if (!copy_attribute(from, to, name.c_str())) return false;
        has_access_list |= name == ACCESS_LIST;
        at += name.size() + 1;
    }
    return has_access_list || drop_access_list(to);
}

}  // namespace

bool kpe_copy_attributes(int from, int to) {
    struct stat old, made;
    if (fstat(from, &old) != 0 || fstat(to, &made) != 0) return false;
    const bool same_owner = old.st_uid == made.st_uid && old.st_gid == made.st_gid;
    if (!same_owner && fchown(to, old.st_uid, old.st_gid) != 0) return false;
    if (!copy_extended(from, to)) return false;

    // The mode comes last: a change of owner or of the access list takes bits away.
    if (fstat(to, &made) != 0) return false;
    return ((old.st_mode ^ made.st_mode) & 07777) == 0 || fchmod(to, old.st_mode & 07777) == 0;
}

void kpe_mark_unfinished(int fd) {
    const int error = errno;
    const std::string inode = inode_of(fd);
    fsetxattr(fd, UNFINISHED, inode.data(), inode.size(), 0);
    errno = error;
}

bool kpe_is_unfinished(int fd) {
    const int error = errno;
    const std::optional<std::string> inode = attribute(fd, UNFINISHED);
    errno = error;
    return inode && !inode->empty() && *inode == inode_of(fd);
}

void kpe_mark_finished(int fd) {
    const int error = errno;
    fremovexattr(fd, UNFINISHED);
    errno = error;
}
