#pragma once

#include <algorithm>
#include <cstddef>
#include <type_traits>

#include "buffer/line_tree.h"

// Where two line trees differ, of which one is mostly a changed copy of the other. Only LineStore and its helpers use
// it.

// Some parts of a level, one behind the other.
template <typename Part>
struct LineParts {
    const LineLevel<Part>& level;
    size_t first, last;  // [first, last)

    size_t count() const { return last - first; }
    size_t start() const { return level.start(first); }
    size_t rows() const { return first == last ? 0 : level.entries[last - 1].end - start(); }
};

// What lies in these parts, put together.
template <typename Part>
LineLevel<Part> kpe_joined(const LineParts<LineLevel<Part>>& parts) {
    LineLevel<Part> all;
    for (size_t i = parts.first; i < parts.last; ++i)
        for (const auto& entry : parts.level.entries[i].part->entries) all.add(entry.part);
    return all;
}

// Calls use(old, anew, rows) with the chunks between those that both have in front and those that both have behind.
// before is the number of rows in front of both levels, and rows that of the rows in front of these chunks.
template <typename Part, typename Use>
void kpe_each_difference(const LineLevel<Part>& old, const LineLevel<Part>& anew, size_t before, const Use& use) {
    const auto &a = old.entries, &b = anew.entries;
    size_t front = 0, back = 0;
    const size_t most = std::min(a.size(), b.size());
    while (front < most && a[front].part == b[front].part) ++front;
    while (back < most - front && a[a.size() - 1 - back].part == b[b.size() - 1 - back].part) ++back;
    const LineParts<Part> rest_a{old, front, a.size() - back}, rest_b{anew, front, b.size() - back};
    before += rest_a.start();
    if constexpr (std::is_same_v<Part, LineChunk>)
        use(rest_a, rest_b, before);
    else if (rest_a.count() == 1 && rest_b.count() == 1)
        kpe_each_difference(*a[front].part, *b[front].part, before, use);
    else
        kpe_each_difference(kpe_joined(rest_a), kpe_joined(rest_b), before, use);
}
