#pragma once

#include <cstddef>
#include <cstdint>

#include "buffer/line_store.h"

// By this a text is known again: two texts with the same hash are the same, but for one case in some billions.
uint64_t kpe_text_hash(const LineStore& text);
// The same bit by bit: the checksum of the runs of a text one after the other, 0 in front of the first one, and then
// the hash of the text, which has so many rows.
uint32_t kpe_text_hash(const LineRun& run, uint32_t before);
uint64_t kpe_text_hash_of(uint32_t sum, size_t rows);
