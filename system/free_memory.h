#pragma once

#include <cstddef>

// What a text would need of the memory, in bytes.
struct MemoryNeed {
    size_t file = 0;    // of the file
    size_t needed = 0;  // with the index of its lines
    size_t free = 0;    // when that was asked
};

// The bytes that this process may still take before the kernel refuses memory or ends a process for it: what the
// machine has free or can free at once, with the room for swapping, but not more than the limits of the process and of
// its control groups leave. SIZE_MAX if the system tells nothing. It takes some tenths of a millisecond.
size_t kpe_free_memory();
