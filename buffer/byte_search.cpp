#include "buffer/byte_search.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>

#if defined(__SSE2__)
#include <immintrin.h>
#endif

#include "system/interrupts.h"

namespace {

constexpr size_t BLOCK = 64;  // places compared at a time: one bit each

// What text, source and logs hold most, the most frequent byte first. All others count as rare.
constexpr std::string_view FREQUENT = " e0t1ain2osr3dl45c6m789up:-.hgf/ybT=,vw_kASE\"IRCDNOPML()xB[]FHGq;jzUVWKY'<>";

constexpr std::array<uint8_t, 256> make_rarities() {
    std::array<uint8_t, 256> rarity{};
    for (auto& r : rarity) r = 255;
    for (size_t i = 0; i < FREQUENT.size(); ++i) rarity[static_cast<uint8_t>(FREQUENT[i])] = static_cast<uint8_t>(i);
    return rarity;
}
constexpr std::array<uint8_t, 256> RARITY = make_rarities();

bool agrees(char byte, uint8_t low, uint8_t mask) { return (static_cast<uint8_t>(byte) | mask) == low; }

template <class Byte>
uint64_t word_at(const Byte* p) {
    uint64_t word;
    std::memcpy(&word, p, sizeof word);
    return word;
}

// Weighs the bytes compared at places that came to nothing against the way covered.
class Effort {
public:
    // True once going on like this is dearer than the one pass.
    bool wasted(size_t agreed, size_t covered) {
        work_ += agreed + 16;
        return work_ > 1024 + 4 * covered;
    }

private:
    size_t work_ = 0;
};

// For the places that the rest of a text brings if it is like its first bytes. A vector that grows by itself would copy
// a million places a dozen times. A rest that is not like them costs a bounded amount of address space.
void make_room(std::vector<const char*>& places, size_t searched, size_t bytes) {
    constexpr size_t MANY = 4096, MOST_GROWTH = 32;
    if (places.size() < MANY || places.size() * 2 < places.capacity()) return;
    const size_t expected = places.size() * std::min(bytes / searched + 1, MOST_GROWTH);
    if (expected > places.capacity() * 2) places.reserve(expected);
}

}  // namespace

bool Patience::ask() {
    if (kpe_is_set(abort_)) over_ = true;
    spent_ = over_ ? STEP : 0;
    return !over_;
}

ByteSearch::ByteSearch(std::string_view needle, bool fold) {
    low_.reserve(needle.size());
    mask_.reserve(needle.size());
    for (char c : needle) {
        low_.push_back(static_cast<uint8_t>(c));
        mask_.push_back(fold && c >= 'a' && c <= 'z' ? 0x20 : 0);
    }
    if (size() > 0) choose_probes();
}

// The rarest byte, and of the others the rarest that differs from it: a repeated byte says little.
void ByteSearch::choose_probes() {
    size_t best = 0;
    for (size_t i = 1; i < size(); ++i)
        if (RARITY[low_[i]] > RARITY[low_[best]]) best = i;
    size_t second = best;
    for (size_t i = 0; i < size(); ++i)
        if (low_[i] != low_[best] && (second == best || RARITY[low_[i]] > RARITY[low_[second]])) second = i;
    if (second == best) second = best == 0 ? size() - 1 : 0;
    rare_[0] = {best, low_[best], mask_[best]};
    rare_[1] = {second, low_[second], mask_[second]};
    weight_ =
        size_t{1} + RARITY[low_[best]] + (size() > 1 ? RARITY[low_[second]] : 0) + 4 * std::min(size(), size_t{16});
}

bool ByteSearch::probe(const char* place) const {
    return agrees(place[rare_[0].at], rare_[0].low, rare_[0].mask) &&
           agrees(place[rare_[1].at], rare_[1].low, rare_[1].mask);
}

// Bit k is set if both rare bytes agree at place + k; all 64 must be places of the text.
#if defined(__SSE2__)

uint64_t ByteSearch::block(const char* place) const {
    const auto all = [](uint8_t byte) { return _mm_set1_epi8(static_cast<char>(byte)); };
    const __m128i low0 = all(rare_[0].low), mask0 = all(rare_[0].mask);
    const __m128i low1 = all(rare_[1].low), mask1 = all(rare_[1].mask);
    const auto load = [](const char* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); };
    const auto equal = [&](size_t k) {
        const __m128i a = _mm_or_si128(load(place + rare_[0].at + k), mask0);
        const __m128i b = _mm_or_si128(load(place + rare_[1].at + k), mask1);
        return _mm_and_si128(_mm_cmpeq_epi8(a, low0), _mm_cmpeq_epi8(b, low1));
    };
    const auto bits = [](__m128i v) { return static_cast<uint64_t>(static_cast<uint32_t>(_mm_movemask_epi8(v))); };
    const __m128i e0 = equal(0), e1 = equal(16), e2 = equal(32), e3 = equal(48);
    const __m128i any = _mm_or_si128(_mm_or_si128(e0, e1), _mm_or_si128(e2, e3));
    if (_mm_movemask_epi8(any) == 0) return 0;
    return bits(e0) | bits(e1) << 16 | bits(e2) << 32 | bits(e3) << 48;
}

#else

uint64_t ByteSearch::block(const char* place) const {
    constexpr uint64_t ONES = 0x0101010101010101, LOW7 = 0x7f * ONES;
    const uint64_t low0 = rare_[0].low * ONES, mask0 = rare_[0].mask * ONES;
    const uint64_t low1 = rare_[1].low * ONES, mask1 = rare_[1].mask * ONES;
    uint64_t bits = 0;
    for (size_t k = 0; k < BLOCK; k += 8) {
        const uint64_t a = (word_at(place + rare_[0].at + k) | mask0) ^ low0;
        const uint64_t b = (word_at(place + rare_[1].at + k) | mask1) ^ low1;
        const uint64_t differ = a | b;  // a zero byte where both agree
        if ((((differ & LOW7) + LOW7) | differ | LOW7) == ~uint64_t{0}) continue;
        for (size_t i = k; i < k + 8; ++i) bits |= uint64_t{probe(place + i)} << i;
    }
    return bits;
}

#endif

// How many of so many blocks hold no place at which both rare bytes agree, up to the first one that does. All of their
// places are places of the text. Registers of 32 bytes take two thirds of the time for that.
#if defined(__x86_64__)

__attribute__((target("avx2"))) size_t ByteSearch::empty_blocks(const char* place, size_t blocks) const {
    const __m256i low0 = _mm256_set1_epi8(static_cast<char>(rare_[0].low));
    const __m256i low1 = _mm256_set1_epi8(static_cast<char>(rare_[1].low));
    const __m256i mask0 = _mm256_set1_epi8(static_cast<char>(rare_[0].mask));
    const __m256i mask1 = _mm256_set1_epi8(static_cast<char>(rare_[1].mask));
    for (size_t block = 0; block < blocks; ++block, place += BLOCK) {
        __m256i both = _mm256_setzero_si256();
        for (const char* p = place; p != place + BLOCK; p += sizeof both) {
            const __m256i a = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p + rare_[0].at));
            const __m256i b = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p + rare_[1].at));
            both = _mm256_or_si256(both, _mm256_and_si256(_mm256_cmpeq_epi8(_mm256_or_si256(a, mask0), low0),
                                                          _mm256_cmpeq_epi8(_mm256_or_si256(b, mask1), low1)));
        }
        if (_mm256_movemask_epi8(both) != 0) return block;
    }
    return blocks;
}

bool ByteSearch::can_skip() { return __builtin_cpu_supports("avx2") != 0; }

#else

size_t ByteSearch::empty_blocks(const char*, size_t) const { return 0; }

bool ByteSearch::can_skip() { return false; }

#endif

// The same for count places from place on, 1 <= count <= 64; all of them are places of the text.
inline uint64_t ByteSearch::candidates(std::string_view text, size_t place, size_t count) const {
    const size_t places = text.size() - size() + 1;
    if (count == BLOCK) return block(text.data() + place);
    if (places - place >= BLOCK) return block(text.data() + place) & ((uint64_t{1} << count) - 1);
    if (place + count >= BLOCK) return block(text.data() + (place + count - BLOCK)) >> (BLOCK - count);
    uint64_t bits = 0;
    for (size_t k = 0; k < count; ++k) bits |= uint64_t{probe(text.data() + place + k)} << k;
    return bits;
}

// How many leading bytes surely agree at p: size() if all do, else some number below.
size_t ByteSearch::agreement(const char* p) const {
    const size_t n = size();
    size_t i = 0;
    if (n < 8) {
        while (i < n && agrees(p[i], low_[i], mask_[i])) ++i;
        return i;
    }
    const auto word_agrees = [&](size_t at) { return (word_at(p + at) | word_at(&mask_[at])) == word_at(&low_[at]); };
    for (; i + 8 <= n; i += 8)
        if (!word_agrees(i)) return i;
    return word_agrees(n - 8) ? n : i - 1;
}

// Patience is asked once a window. A window is not short against the needle, because searching it may
// cost the needle's length besides its own.
size_t ByteSearch::window() const { return std::max(size_t{1} << 16, 4 * size()); }

size_t ByteSearch::find(std::string_view text, size_t from, Patience& patience) const {
    if (size() == 0 || text.size() < size()) return NONE;
    const size_t end = text.size() - size() + 1;
    while (from < end) {
        const size_t count = std::min(window(), end - from);
        const size_t place = find_within(text, from, from + count - 1);
        const bool going_on = patience.spend(place == NONE ? count : place - from + 1);
        if (place != NONE || !going_on) return place;
        from += count;
    }
    return NONE;
}

size_t ByteSearch::rfind(std::string_view text, size_t from, Patience& patience) const {
    if (size() == 0 || text.size() < size()) return NONE;
    size_t end = text.size() - size() + 1;
    while (from < end) {
        const size_t count = std::min(window(), end - from);
        const size_t place = rfind_within(text, end - count, end - 1);
        const bool going_on = patience.spend(place == NONE ? count : end - place);
        if (place != NONE || !going_on) return place;
        end -= count;
    }
    return NONE;
}

size_t ByteSearch::find_within(std::string_view text, size_t first, size_t last) const {
    static const bool skips = can_skip();
    Effort effort;
    for (size_t at = first; at <= last; at += BLOCK) {
        const size_t places = last - at + 1;
        uint64_t bits = candidates(text, at, std::min(BLOCK, places));
        if (bits == 0 && skips && places > BLOCK)
            at += BLOCK * empty_blocks(text.data() + at + BLOCK, places / BLOCK - 1);
        for (; bits != 0; bits &= bits - 1) {
            const size_t place = at + static_cast<size_t>(std::countr_zero(bits));
            const size_t agreed = agreement(text.data() + place);
            if (agreed == size()) return place;
            if (effort.wasted(agreed, place - first)) return one_pass<false>(text, place, last);
        }
    }
    return NONE;
}

void ByteSearch::find_all(std::string_view text, std::vector<const char*>& places, Patience& patience) const {
    if (size() == 0 || text.size() < size()) return;
    const size_t end = text.size() - size() + 1;  // of the places
    size_t from = 0;                              // behind the last one found
    for (size_t start = 0; start < end;) {
        const size_t stop = start + std::min(window(), end - start);
        if (!all_within(text, start, stop, from, places)) {
            // Dear candidates: one by one, each in a time linear in the way to it.
            while (from < end && !patience.over()) {
                const size_t place = find(text, from, patience);
                if (place == NONE) return;
                places.push_back(text.data() + place);
                from = place + size();
            }
            return;
        }
        if (!patience.spend(stop - start)) return;
        start = stop;
        make_room(places, start, end);
    }
}

// The places in [first, last) at from or later; from becomes the end of the last one. false once going on is dearer
// than find(); what is left begins at from then.
bool ByteSearch::all_within(std::string_view text, size_t first, size_t last, size_t& from,
                            std::vector<const char*>& places) const {
    Effort effort;
    for (size_t at = first; at < last; at += BLOCK) {
        uint64_t bits = candidates(text, at, std::min(BLOCK, last - at));
        for (; bits != 0; bits &= bits - 1) {
            const size_t place = at + static_cast<size_t>(std::countr_zero(bits));
            if (place < from) continue;
            const size_t agreed = agreement(text.data() + place);
            if (agreed == size()) {
                places.push_back(text.data() + place);
                from = place + size();
            } else if (effort.wasted(agreed, place - first)) {
                from = std::max(from, place);
                return false;
            }
        }
    }
    return true;
}

size_t ByteSearch::rfind_within(std::string_view text, size_t first, size_t last) const {
    Effort effort;
    for (size_t end = last + 1; end > first;) {
        const size_t count = std::min(BLOCK, end - first);
        uint64_t bits = candidates(text, end - count, count);
        while (bits != 0) {
            const int top = 63 - std::countl_zero(bits);
            const size_t place = end - count + static_cast<size_t>(top);
            const size_t agreed = agreement(text.data() + place);
            if (agreed == size()) return place;
            if (effort.wasted(agreed, last - place)) return one_pass<true>(text, first, place);
            bits &= ~(uint64_t{1} << top);
        }
        end -= count;
    }
    return NONE;
}

// The first (BACKWARD: the last) place from first to last, by the method of Knuth, Morris and Pratt
// (SIAM Journal on Computing 6, 1977): no byte of the text is read twice. Backward both are mirrored.
template <bool BACKWARD>
size_t ByteSearch::one_pass(std::string_view text, size_t first, size_t last) const {
    const size_t n = size(), length = last - first + n;
    const auto index = [n](size_t i) { return BACKWARD ? n - 1 - i : i; };
    std::vector<size_t> border(n + 1, 0);  // border[i]: longest proper prefix of the first i that ends them
    for (size_t i = 1, b = 0; i < n; ++i) {
        while (b > 0 && low_[index(i)] != low_[index(b)]) b = border[b];
        if (low_[index(i)] == low_[index(b)]) ++b;
        border[i + 1] = b;
    }
    size_t matched = 0;
    for (size_t i = 0; i < length; ++i) {
        const char byte = text[BACKWARD ? first + length - 1 - i : first + i];
        const auto fits = [&] { return agrees(byte, low_[index(matched)], mask_[index(matched)]); };
        while (matched > 0 && !fits()) matched = border[matched];
        if (fits() && ++matched == n) return BACKWARD ? first + length - 1 - i : first + i + 1 - n;
    }
    return NONE;
}
