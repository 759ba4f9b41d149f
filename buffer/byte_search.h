#pragma once

#include <csignal>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

// Says how long a search may go on. It counts the bytes that were searched, and asks the abort flag about every 64 KB.
class Patience {
public:
    explicit Patience(const volatile std::sig_atomic_t* abort) : abort_(abort) {}
    // Counts so much work (in bytes). Returns false once the flag was seen set: the search has to stop.
    bool spend(size_t work) {
        spent_ += work;
        return spent_ < STEP || ask();
    }
    bool ask();  // looks at the flag at once; returns as spend()
    bool over() const { return over_; }

private:
    static constexpr size_t STEP = size_t{1} << 16;
    const volatile std::sig_atomic_t* abort_;
    size_t spent_ = 0;
    bool over_ = false;
};

// Finds a string of bytes in texts, with or without regard to case.
//
// Two of its bytes that are rare in ordinary text are compared at 64 places at a time. Only where both agree the other
// bytes are looked at. If that happens too often in vain, the rest of the text is searched in one pass that never goes
// back. The time thus stays in proportion to the length of the text.
class ByteSearch {
public:
    static constexpr size_t NONE = static_cast<size_t>(-1);

    ByteSearch() = default;  // the empty string, which is found nowhere
    // needle is the string to find. With fold, capital and small letters A to Z count as the same, and needle must be
    // in lower case.
    ByteSearch(std::string_view needle, bool fold);

    size_t size() const { return low_.size(); }
    // A measure of how rare the string is in ordinary text: higher is rarer. 0 for the empty string.
    size_t weight() const { return weight_; }
    // Whether the string stands at p. size() bytes must be readable there.
    bool is_at(const char* p) const { return agreement(p) == size(); }

    // The first (find) or last (rfind) place at from or later where the string lies wholly inside text. NONE if there
    // is none, or if patience ended.
    size_t find(std::string_view text, size_t from, Patience& patience) const;
    size_t rfind(std::string_view text, size_t from, Patience& patience) const;
    // Adds all places to places, from left to right and without overlaps. If patience ended, adds those found so far.
    void find_all(std::string_view text, std::vector<const char*>& places, Patience& patience) const;

private:
    struct Probe {  // a rare byte of the string, at offset at
        size_t at = 0;
        uint8_t low = 0, mask = 0;
    };
    void choose_probes();
    bool probe(const char* place) const;
    uint64_t block(const char* place) const;
    size_t empty_blocks(const char* place, size_t blocks) const;
    static bool can_skip();  // whether there are registers for empty_blocks()
    uint64_t candidates(std::string_view text, size_t place, size_t count) const;
    size_t agreement(const char* p) const;
    size_t window() const;
    size_t find_within(std::string_view text, size_t first, size_t last) const;
    size_t rfind_within(std::string_view text, size_t first, size_t last) const;
    bool all_within(std::string_view text, size_t first, size_t last, size_t& from,
                    std::vector<const char*>& places) const;
    template <bool BACKWARD>
    size_t one_pass(std::string_view text, size_t first, size_t last) const;

    // Byte b agrees with byte i if (b | mask_[i]) == low_[i]; the mask is 0x20 for a folded letter.
    std::vector<uint8_t> low_, mask_;
    Probe rare_[2];
    size_t weight_ = 0;
};
