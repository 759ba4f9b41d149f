#include "system/crc32c.h"

#include <array>
#include <cstddef>
#include <cstring>

namespace {

constexpr uint32_t REFLECTED_POLYNOMIAL = 0x82f63b78;

constexpr std::array<uint32_t, 256> make_table() {
    std::array<uint32_t, 256> table{};
    for (uint32_t byte = 0; byte < table.size(); ++byte) {
        uint32_t sum = byte;
        for (int bit = 0; bit < 8; ++bit) sum = (sum & 1) != 0 ? sum >> 1 ^ REFLECTED_POLYNOMIAL : sum >> 1;
        table[byte] = sum;
    }
    return table;
}
constexpr std::array<uint32_t, 256> TABLE = make_table();

uint32_t by_table(std::string_view bytes, uint32_t sum) {
    for (const char byte : bytes) sum = sum >> 8 ^ TABLE[(sum ^ static_cast<unsigned char>(byte)) & 0xff];
    return sum;
}

#ifdef __x86_64__
__attribute__((target("sse4.2"))) uint32_t by_instruction(std::string_view bytes, uint32_t sum) {
    uint64_t wide = sum;
    for (; bytes.size() >= sizeof wide; bytes.remove_prefix(sizeof wide)) {
        uint64_t eight = 0;
        std::memcpy(&eight, bytes.data(), sizeof eight);
        wide = __builtin_ia32_crc32di(wide, eight);
    }
    sum = static_cast<uint32_t>(wide);
    for (const char byte : bytes) sum = __builtin_ia32_crc32qi(sum, static_cast<unsigned char>(byte));
    return sum;
}

bool has_instruction() { return __builtin_cpu_supports("sse4.2") != 0; }
#else
uint32_t by_instruction(std::string_view bytes, uint32_t sum) { return by_table(bytes, sum); }
bool has_instruction() { return false; }
#endif

}  // namespace

uint32_t kpe_crc32c(std::string_view bytes, uint32_t before) {
    static const bool fast = has_instruction();
    return ~(fast ? by_instruction(bytes, ~before) : by_table(bytes, ~before));
}
