#include <climits>
#include <optional>

#include "config/n3_rzconfig.h"

namespace n3rz {
namespace {

constexpr int LARGEST_GAP = 100;  // missing versions that the search for the highest one passes over

// Where the version suffix of path starts (at its ";"), if it has one.
std::optional<size_t> suffix_start(const std::string& path) {
    const size_t start = path.rfind(';');
    if (start == std::string::npos || start + 1 == path.size()) return std::nullopt;
    if (path.find_first_not_of("0123456789", start + 1) != std::string::npos) return std::nullopt;
    return start;
}

// A version number written without leading zeros. A user may type any number of digits, so numbers stay
// text: they neither overflow nor meet one another at a limit, and no existing version is ever hit.
std::string without_zeros(const std::string& digits) {
    const size_t start = digits.find_first_not_of('0');
    return start == std::string::npos ? "0" : digits.substr(start);
}

std::string next_number(std::string digits) {
    size_t i = digits.size();
    while (i > 0 && digits[i - 1] == '9') digits[--i] = '0';
    if (i == 0) return "1" + digits;
    ++digits[i - 1];
    return digits;
}

std::string versioned(const std::string& base, const std::string& number) { return base + ";" + number; }

}  // namespace

std::string strip_version(const std::string& path) { return path.substr(0, suffix_start(path).value_or(path.size())); }

int version_of(const std::string& path) {
    const std::optional<size_t> start = suffix_start(path);
    if (!start) return 0;
    int version = 0;
    for (size_t i = *start + 1; i < path.size(); ++i) {
        const int digit = path[i] - '0';
        if (version > (INT_MAX - digit) / 10) return INT_MAX;
        version = version * 10 + digit;
    }
    return version;
}

int highest_version(const std::string& base) {
    int highest = file_exists(base) || file_exists(versioned(base, "1")) ? 1 : 0;
    for (int version = 2; version - highest <= LARGEST_GAP + 1; ++version)
        if (file_exists(versioned(base, std::to_string(version)))) highest = version;
    return highest;
}

std::string resolve_read_path(const std::string& p, bool versioning) {
    if (!versioning || p.empty()) return p;
    std::string base = strip_version(p);
    if (!suffix_start(p)) {
        const int highest = highest_version(base);
        return highest < 2 ? p : versioned(base, std::to_string(highest));
    }
    if (version_of(p) >= 2) return p;
    if (file_exists(base)) return base;
    std::string first = versioned(base, "1");
    return file_exists(first) ? first : p;
}

std::string resolve_write_path(const std::string& p, bool versioning) {
    if (!versioning || p.empty()) return p;
    std::string base = strip_version(p);
    std::string last = "1";  // the version that the new one follows
    if (const std::optional<size_t> start = suffix_start(p)) {
        const std::string given = without_zeros(p.substr(*start + 1));
        if (given != "0") last = given;
    } else {
        const int highest = highest_version(base);
        if (highest == 0) return base;
        last = std::to_string(highest);
    }
    do last = next_number(last);
    while (file_exists(versioned(base, last)));
    return versioned(base, last);
}

}  // namespace n3rz
