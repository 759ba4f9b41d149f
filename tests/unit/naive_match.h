#pragma once

#include <algorithm>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "buffer/match.h"
#include "buffer/text_buffer.h"

// The pattern language by plain backtracking, a rule a line: what every other way must find.
inline int backtrack(std::string_view p, std::string_view t) {
    const auto then = [&](size_t used, int taken) {
        const int rest = backtrack(p.substr(used), t.substr(static_cast<size_t>(taken)));
        return rest < 0 ? -1 : rest + taken;
    };
    const auto byte = [](char c) { return static_cast<unsigned char>(c); };
    if (p.empty()) return 0;
    if (p == "$") return t.empty() ? 0 : -1;
    if (p[0] == '*') {
        size_t stars = 0;
        while (stars < p.size() && p[stars] == '*') ++stars;
        for (size_t k = 0; k <= t.size(); ++k)
            if (const int found = then(stars, static_cast<int>(k)); found >= 0) return found;
        return -1;
    }
    if (t.empty()) return -1;
    if (p[0] == '\\') return p.size() > 1 && p[1] == t[0] ? then(2, 1) : -1;
    if (p[0] == '?' || p[0] == '%') return then(1, 1);
    if (p[0] != '[') return p[0] == t[0] ? then(1, 1) : -1;
    size_t i = 1;
    bool member = false;
    const bool negated = i < p.size() && p[i] == '^';
    if (negated) ++i;
    while (i < p.size() && p[i] != ']') {
        const bool range = i + 2 < p.size() && p[i + 1] == '-' && p[i + 2] != ']';
        const char last = range ? p[i + 2] : p[i];
        if (byte(p[i]) <= byte(t[0]) && byte(t[0]) <= byte(last)) member = true;
        i += range ? 3 : 1;
    }
    return member != negated ? then(std::min(i + 1, p.size()), 1) : -1;
}

inline bool naive_wild(std::string_view s) {
    for (size_t i = 0; i < s.size(); ++i) {
        if (s[i] == '\\')
            ++i;
        else if (std::string_view("*?%[^$").find(s[i]) != std::string_view::npos)
            return true;
    }
    return false;
}

// A search string, tried at every column of a line one by one. The needle is not empty.
struct NaiveSearch {
    std::string needle, line;
    bool is_wild, anchored;
    std::vector<int> lengths;  // by column, -1 for no match

    NaiveSearch(std::string_view n, std::string_view l, bool exact)
        : needle(exact ? std::string(n) : TextBuffer::to_lower(std::string(n))),
          line(exact ? std::string(l) : TextBuffer::to_lower(std::string(l))),
          is_wild(naive_wild(n)),
          anchored(is_wild && n[0] == '^') {
        const std::string_view pattern = std::string_view(needle).substr(anchored ? 1 : 0);
        for (size_t col = 0; col <= line.size(); ++col) {
            const std::string_view rest = std::string_view(line).substr(col);
            if (is_wild)
                lengths.push_back(backtrack(pattern, rest));
            else
                lengths.push_back(rest.starts_with(needle) ? static_cast<int>(needle.size()) : -1);
        }
    }
    std::optional<size_t> first(size_t from) const {
        for (size_t col = std::min(from, line.size()); col <= line.size(); ++col)
            if (lengths[col] >= 0 && (!anchored || col == 0)) return col;
        return std::nullopt;
    }
    std::optional<size_t> last(size_t limit) const {
        limit = std::min(limit, line.size());
        for (size_t col = anchored ? 0 : limit;; --col) {
            const size_t end = col + (is_wild ? 0 : needle.size());
            if (lengths[col] >= 0 && end <= limit) return col;
            if (col == 0) return std::nullopt;
        }
    }
    size_t length_at(size_t col) const {
        return is_wild && lengths[col] >= 0 ? static_cast<size_t>(lengths[col]) : needle.size();
    }
};

// The first column that, as a start or as a limit, makes a matcher of the needle differ from the naive search.
inline std::optional<size_t> naive_difference(const std::string& needle, const std::string& line, bool exact,
                                              const Matcher& matcher) {
    const NaiveSearch naive(needle, line, exact);
    const auto agrees = [&](const std::optional<Matcher::Match>& got, const std::optional<size_t>& col) {
        return got ? col == got->col && got->len == naive.length_at(got->col) : !col;
    };
    for (size_t col = 0; col <= line.size(); ++col) {
        if (!agrees(matcher.first_in({line}, col), naive.first(col)) ||
            !agrees(matcher.last_in({line}, col), naive.last(col)) ||
            matcher.length_at(line, col) != naive.length_at(col))
            return col;
    }
    return std::nullopt;
}
