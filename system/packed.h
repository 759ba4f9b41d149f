#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

// Numbers and texts packed into bytes. A number takes seven bits a byte, the lowest first; every byte but its last one
// has the highest bit set (LEB128, as DWARF 5, section 7.6, defines it). A text is its length and its bytes.

inline void kpe_pack(std::string& to, uint64_t number) {
    for (; number >= 0x80; number >>= 7) to += static_cast<char>(number | 0x80);
    to += static_cast<char>(number);
}

inline void kpe_pack(std::string& to, std::string_view text) {
    kpe_pack(to, uint64_t{text.size()});
    to += text;
}

// Reads them again from bytes that may hold anything. After something that cannot be read, good() is false, and from
// then on numbers are 0 and texts empty.
class Unpacker {
public:
    explicit Unpacker(std::string_view bytes) : left_(bytes) {}

    uint64_t number() {
        uint64_t number = 0;
        for (unsigned shift = 0; shift < 64; shift += 7) {
            if (left_.empty()) break;
            const auto byte = static_cast<unsigned char>(left_.front());
            left_.remove_prefix(1);
            number |= uint64_t{byte & 0x7fU} << shift;
            if (byte < 0x80) return number;
        }
        fail();
        return 0;
    }
    std::string_view text() {
        const uint64_t size = number();
        if (size > left_.size()) fail();
        const std::string_view text = left_.substr(0, good_ ? size : 0);
        left_.remove_prefix(text.size());
        return text;
    }
    void fail() {
        good_ = false;
        left_ = {};
    }
    bool good() const { return good_; }
    bool at_end() const { return left_.empty(); }
    std::string_view left() const { return left_; }

private:
    std::string_view left_;
    bool good_ = true;
};
