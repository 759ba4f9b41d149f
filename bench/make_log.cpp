// make_log LINES: writes a log of that many lines, 115 bytes each on average, always the same ones.
// Every line holds "status" once; "needle" stands alone in a line of the middle and of the end.
#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

// The 64-bit generator "xorshift64*" (S. Vigna, An experimental exploration of Marsaglia's xorshift generators, 2016).
class Random {
public:
    uint64_t below(uint64_t limit) {
        state_ ^= state_ >> 12;
        state_ ^= state_ << 25;
        state_ ^= state_ >> 27;
        return ((state_ * UINT64_C(2685821657736338717)) >> 33) % limit;
    }

private:
    uint64_t state_ = 88172645463325252;
};

constexpr const char* LEVELS[] = {"INFO ", "INFO ", "INFO ", "DEBUG", "WARN ", "ERROR"};
constexpr const char* PATHS[] = {"/api/v1/orders", "/api/v1/items", "/login", "/static/site.css", "/search?q=lamp"};
constexpr const char* REMARKS[] = {"cache=hit upstream=none", "cache=miss via=10.0.4.17", "retry=1 via=10.0.4.18",
                                   "cache=off", "cache=stale queued"};

}  // namespace

int main(int argc, char** argv) {
    const uint64_t lines = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 0;
    Random random;
    char line[256];
    for (uint64_t i = 0; i < lines; ++i) {
        const char* word = i == lines / 2 ? " needle-in-the-middle" : i + 10 == lines ? " needle-near-the-end" : "";
        const int n = std::snprintf(
            line, sizeof line,
            "2026-03-%02" PRIu64 " %02" PRIu64 ":%02" PRIu64 ":%02" PRIu64 " host%02" PRIu64 " %s [%05" PRIu64
            "] GET %s status=%" PRIu64 " bytes=%" PRIu64 " time=%" PRIu64 "ms %s%s\n",
            1 + i * 30 / lines, random.below(24), random.below(60), random.below(60), random.below(40),
            LEVELS[random.below(6)], random.below(99999), PATHS[random.below(5)], 200 + random.below(4) * 100,
            random.below(9000000), random.below(2000), REMARKS[random.below(5)], word);
        std::fwrite(line, 1, static_cast<size_t>(n), stdout);
    }
    return std::fflush(stdout) == 0 ? 0 : 1;
}
