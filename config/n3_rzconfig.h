#pragma once

#include <string>
#include <sys/stat.h>

// This folder, config/, finds settings in the runtime's configuration files, and maps file names to names with a
// version suffix (name;3). Its functions keep no state: they look at the files again at each call.
namespace n3rz {

// The name of an environment variable: tag in upper case, then suffix. ("kpe", "_RZ_DEBUG") gives "KPE_RZ_DEBUG". A
// null tag counts as empty.
std::string env_name(const char* tag, const char* suffix);
// The value of the environment variable of that name; null if it is not set.
const char* env_tagged(const char* tag, const char* suffix);
// Looks for key in the configuration files. value gets the first word behind key, from the first line that has it in
// the first file that has it. Returns false, and leaves value as it is, if no file has the key, or if the environment
// variable with the suffix _NO_RZCONFIG is set.
bool config_lookup(const char* key, std::string& value, const char* tag);
// Whether a setting's value means on: it begins with Y, T, 1 or ON, in capital or small letters.
bool config_is_on(const std::string& v);
// Whether the runtime's shared library can be loaded.
bool runtime_present();
// Whether anything of that name exists. False for a name with a NUL byte: no file has one, and the part before the NUL
// is another name.
bool file_exists(const std::string& p);

// The path without its version suffix (";" and digits at the end).
std::string strip_version(const std::string& path);
// The version in path's suffix, or 0 if it has none. A number that is too large becomes the largest int.
int version_of(const std::string& path);
// The highest version of base that exists, or 0 if there is none. A file without a version suffix counts as version 1.
int highest_version(const std::string& base);
// The path that a read or a write of p uses. With versioning off it is p itself.
std::string resolve_read_path(const std::string& p, bool versioning);
std::string resolve_write_path(const std::string& p, bool versioning);

}  // namespace n3rz

// Calls stat(path, st). Returns 0, or -1 with errno set.
int kpe_stat(const char* path, struct stat* st);
