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
