#pragma once

#include <string>

#include "system/free_memory.h"

// Why a file could not be written or read, as a sentence without a full stop: "No permission to write in /etc". error
// is the errno of the attempt, path the name that was used. Asks the disk what stands there now.
std::string kpe_why_unwritten(int error, const std::string& path);
std::string kpe_why_unread(int error, const std::string& path);
// Why a file was not read at all: "Too large for the memory here: 40 GB, 12 GB free".
std::string kpe_too_large(const MemoryNeed& need);
