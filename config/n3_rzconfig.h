#pragma once

#include <string>
#include <sys/stat.h>

// Finds keys in the runtime's configuration files, and maps file names to names with version suffixes
// (name;3). Free functions without state; nothing is cached.
namespace n3rz {

// tag upper-cased (null counts as empty), then suffix: ("kpe", "_RZ_DEBUG") gives "KPE_RZ_DEBUG".
std::string env_name(const char* tag, const char* suffix);
// getenv of that name: null when it is not set.
const char* env_tagged(const char* tag, const char* suffix);
// The first word after key in the first line of the first configuration file that has it. false, and value
// as it was, when none has it or the environment variable with the suffix _NO_RZCONFIG is set.
bool config_lookup(const char* key, std::string& value, const char* tag);
// Y..., T..., 1... and ON..., in any case, are on; everything else is off.
bool config_is_on(const std::string& v);
// Whether the runtime's shared library can be loaded.
bool runtime_present();
// Whether anything of that name exists. No name holds a NUL, and what stands before one is another name.
bool file_exists(const std::string& p);

// The path without its version suffix (";" and digits at the end).
std::string strip_version(const std::string& path);
// The version that path's suffix names, saturated at the largest int; 0 when it has none.
int version_of(const std::string& path);
// The highest version of base that exists: 0 when there is none; the plain file counts as version 1.
int highest_version(const std::string& base);
// Which file a read or a write of p uses; with versioning off p itself.
std::string resolve_read_path(const std::string& p, bool versioning);
std::string resolve_write_path(const std::string& p, bool versioning);

}  // namespace n3rz

// stat under the editor's own name: 0, or -1 with errno set.
int kpe_stat(const char* path, struct stat* st);
