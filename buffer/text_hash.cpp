#include "buffer/text_hash.h"

#include "system/crc32c.h"

uint32_t kpe_text_hash(const LineRun& run, uint32_t before) {
    const uint32_t sum = kpe_crc32c(run.bytes, before);
    return run.terminated ? sum : kpe_crc32c("\n", sum);
}

uint64_t kpe_text_hash_of(uint32_t sum, size_t rows) { return uint64_t{sum} | uint64_t{rows} << 32; }

uint64_t kpe_text_hash(const LineStore& text) {
    uint32_t sum = 0;
    for (const LineRun& run : text.runs()) sum = kpe_text_hash(run, sum);
    return kpe_text_hash_of(sum, text.size());
}
