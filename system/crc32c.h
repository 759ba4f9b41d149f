#pragma once

#include <cstdint>
#include <string_view>

// The CRC-32C (Castagnoli) of bytes, as RFC 3720, appendix B.4, defines it. before is the checksum of what stands in
// front of them, 0 if nothing does: the checksum of two pieces is that of both together.
uint32_t kpe_crc32c(std::string_view bytes, uint32_t before = 0);
