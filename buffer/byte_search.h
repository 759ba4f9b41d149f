#pragma once

#include <csignal>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

// How long a search may go on: it counts the bytes looked at and asks the abort flag every 64 KB or so.
class Patience {
public:
    explicit Patience(const volatile std::sig_atomic_t* abort) : abort_(abort) {}
    // False from the moment on at which the flag was seen set.
    bool spend(size_t work) {
        spent_ += work;
        return spent_ < STEP || ask();
    }
    bool ask();  // asks at once
    bool over() const { return over_; }

private:
    static constexpr size_t STEP = size_t{1} << 16;
    const volatile std::sig_atomic_t* abort_;
    size_t spent_ = 0;
    bool over_ = false;
};

// A string of bytes to be found in others, with or without regard to case.
//
// Two bytes of it that are rare in ordinary text are compared with 64 places at a time, and only where
// both agree is the rest looked at. Where that happens too often for too little, the remaining text is
// searched in one pass that never goes back, so the time stays linear in the text.
class ByteSearch {
public:
    static constexpr size_t NONE = static_cast<size_t>(-1);

    ByteSearch() = default;  // empty: found nowhere
    // fold: the letters A to Z and a to z count as the same; needle must be in lower case then.
    ByteSearch(std::string_view needle, bool fold);

    size_t size() const { return low_.size(); }
    // Higher for a string that ordinary text is likely to hold less often; 0 for the empty one.
    size_t weight() const { return weight_; }
    // Is it at p? size() bytes must be readable there.
    bool is_at(const char* p) const { return agreement(p) == size(); }

    // The first place at or after from, the last one at or after from. It lies wholly inside text.
    // NONE if there is none, or if patience ended.
    size_t find(std::string_view text, size_t from, Patience& patience) const;
    size_t rfind(std::string_view text, size_t from, Patience& patience) const;
    // Adds all places to places, each behind the end of the one before. Those found so far if patience ended.
    void find_all(std::string_view text, std::vector<const char*>& places, Patience& patience) const;

private:
    struct Probe {  // one byte of the needle
        size_t at = 0;
        uint8_t low = 0, mask = 0;
    };
    void choose_probes();
    bool probe(const char* place) const;
    uint64_t block(const char* place) const;
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
