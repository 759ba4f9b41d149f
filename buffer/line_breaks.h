#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

// Calls found(place) for each "\n" in [begin, end), from left to right. found may change the bytes up to its place.
//
// It compares 64 bytes at a time. Lines are so short that a call of memchr for each would cost more than the bytes.
template <class Found>
void kpe_each_line_break(char* begin, char* end, Found found) {
#if defined(__SSE2__)
    const __m128i line_break = _mm_set1_epi8('\n');
    const auto breaks = [&](const char* p) {
        const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
        return static_cast<uint64_t>(static_cast<uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(bytes, line_break))));
    };
    for (; end - begin >= 64; begin += 64) {
        uint64_t bits = breaks(begin) | breaks(begin + 16) << 16 | breaks(begin + 32) << 32 | breaks(begin + 48) << 48;
        for (; bits != 0; bits &= bits - 1) found(begin + std::countr_zero(bits));
    }
#endif
    while (begin != end) {
        char* const place = static_cast<char*>(std::memchr(begin, '\n', static_cast<size_t>(end - begin)));
        if (!place) return;
        found(place);
        begin = place + 1;
    }
}

// Where the next line begins (in), and where it goes (out): further to the front if bytes were dropped.
struct LineCutPlace {
    char *in, *out;
};

// Cuts the lines that end in [begin, end): calls add(length) for each of them. The first one begins at place.in.
// Carriage returns in front of the line ends are dropped if drop is true; then the bytes behind them move up, so that
// each line lies behind the one before, with a "\n" behind it. Returns the place behind the last line.
template <class Add>
LineCutPlace kpe_cut_lines(char* begin, char* end, LineCutPlace place, bool drop, Add add) {
    char *in = place.in, *out = place.out;
    kpe_each_line_break(begin, end, [&](char* line_end) {
        size_t length = static_cast<size_t>(line_end - in);
        if (drop && length > 0 && line_end[-1] == '\r') --length;
        if (in != out) std::memmove(out, in, length);
        out[length] = '\n';
        add(length);
        out += length + 1;
        in = line_end + 1;
    });
    return {in, out};
}
