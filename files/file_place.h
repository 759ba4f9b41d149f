#pragma once

#include <functional>
#include <string>

// Whether both paths name one file. If the file does not exist yet: whether both would create it under the same name in
// the same directory. Symbolic links are followed, even if they lead to nothing.
bool kpe_same_place(const std::string& a, const std::string& b);
// The path of a file from the root on and without symbolic links, whether the file exists or not. The path as it is if
// its directory does not exist, and "" for "".
std::string kpe_absolute_path(const std::string& path);
// Calls visit with a descriptor of the directory and the name of each entry in it, in no order. A directory that cannot
// be read has none.
void kpe_each_entry(const std::string& directory, const std::function<void(int fd, const char* name)>& visit);
