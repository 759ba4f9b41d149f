#pragma once

#include <string>

// Whether both paths name one file: they lead to the same file, or, where there is none yet, would make it under the
// same name in the same directory. Symbolic links are followed, also those that dangle.
bool kpe_same_place(const std::string& a, const std::string& b);
