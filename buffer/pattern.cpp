#include "buffer/pattern.h"
#include "system/ascii.h"

#include <string>
#include <utility>

std::string kpe_lowered(std::string_view text) {
    std::string result(text);
    for (char& c : result) c = kpe_to_lower(c);
    return result;
}

namespace {

size_t index_of(char c) { return static_cast<unsigned char>(c); }

}  // namespace

// --- One segment ---

void Pattern::Segment::add(char byte, bool exact) {
    ByteSet set;
    set.set(index_of(byte));
    if (!exact && byte >= 'a' && byte <= 'z') set.set(index_of(byte) - 'a' + 'A');
    sets_.push_back(set);
    bytes_.push_back(static_cast<int>(index_of(byte)));
}

void Pattern::Segment::add(const ByteSet& set) {
    sets_.push_back(set);
    bytes_.push_back(NO_BYTE);
}

void Pattern::Segment::finish(bool exact) {
    for (size_t i = 0; i < bytes_.size();) {
        std::string run;
        const size_t start = i;
        for (; i < bytes_.size() && bytes_[i] != NO_BYTE; ++i) run += static_cast<char>(bytes_[i]);
        ByteSearch search(run, !exact);
        if (search.weight() > key_.weight()) {
            key_ = std::move(search);
            key_at_ = start;
        }
        if (i == start) ++i;
    }
    bytes_ = {};
}

bool Pattern::Segment::is_at(const char* p) const {
    if (literal()) return key_.is_at(p);
    for (const ByteSet& set : sets_)
        if (!set.test(index_of(*p++))) return false;
    return true;
}

size_t Pattern::Segment::find(std::string_view text, size_t from, Patience& patience) const {
    if (text.size() < size() || from > text.size() - size()) return NONE;
    if (size() == 0) return from;
    if (literal()) return key_.find(text, from, patience);
    const size_t last = text.size() - size();
    const std::string_view key_text = text.substr(0, last + key_at_ + key_.size());
    for (size_t place = from; place <= last; ++place) {
        if (key_.size() > 0) {
            const size_t hit = key_.find(key_text, place + key_at_, patience);
            if (hit == NONE) return NONE;
            place = hit - key_at_;
        }
        if (is_at(text.data() + place)) return place;
        if (!patience.spend(size())) return NONE;
    }
    return NONE;
}

size_t Pattern::Segment::rfind(std::string_view text, size_t from, Patience& patience) const {
    if (text.size() < size() || from > text.size() - size()) return NONE;
    if (size() == 0) return text.size();
    if (literal()) return key_.rfind(text, from, patience);
    for (size_t end = text.size() - size() + 1; end > from;) {
        size_t place = end - 1;
        if (key_.size() > 0) {
            const size_t hit = key_.rfind(text.substr(0, place + key_at_ + key_.size()), from + key_at_, patience);
            if (hit == NONE) return NONE;
            place = hit - key_at_;
        }
        if (is_at(text.data() + place)) return place;
        if (!patience.spend(size())) return NONE;
        end = place;
    }
    return NONE;
}

// --- Reading a search string ---

struct Pattern::Reader {
    std::string_view rest;
    bool exact;

    char take() {
        const char c = rest.front();
        rest.remove_prefix(1);
        return c;
    }

    // What follows "[", up to and with the first "]" or the end. A "]" right at the start closes.
    ByteSet take_class() {
        const bool negated = !rest.empty() && rest.front() == '^';
        if (negated) take();
        ByteSet members;
        while (!rest.empty() && rest.front() != ']') {
            size_t from = index_of(take()), to = from;
            if (rest.size() >= 2 && rest[0] == '-' && rest[1] != ']') {
                take();
                to = index_of(take());
            }
            for (; from <= to; ++from) members.set(from);
        }
        if (!rest.empty()) take();
        if (negated) members.flip();
        return exact ? members : folded(members);
    }

    // The bytes whose lower case is a member.
    static ByteSet folded(ByteSet members) {
        for (size_t c = 'A'; c <= 'Z'; ++c) members.set(c, members.test(c - 'A' + 'a'));
        return members;
    }

    // Adds the next element; false if it can match nothing.
    bool take_element(Segment& segment) {
        const char c = take();
        if (c == '[') {
            const ByteSet members = take_class();
            segment.add(members);
            return members.any();
        }
        if (c == '?' || c == '%') {
            segment.add(ByteSet().set());
        } else if (c == '\\') {
            if (rest.empty()) return false;
            segment.add(take(), exact);
        } else {
            segment.add(c, exact);
        }
        return true;
    }
};

Pattern Pattern::literal(std::string_view text, bool exact) {
    Pattern pattern;
    Segment& segment = pattern.segments_.front();
    for (char c : exact ? std::string(text) : kpe_lowered(text)) segment.add(c, exact);
    segment.finish(exact);
    return pattern;
}

Pattern Pattern::wildcard(std::string_view text, bool exact) {
    text = text.substr(0, text.find('\0'));
    const std::string folded = exact ? std::string() : kpe_lowered(text);
    Reader in{exact ? text : std::string_view(folded), exact};
    Pattern pattern;
    bool star = false;  // a star was read, and nothing behind it yet
    while (!in.rest.empty()) {
        if (in.rest == "$") {
            pattern.ends_line_ = true;
            in.take();
        } else if (in.rest.front() == '*') {
            star = true;
            in.take();
            continue;
        }
        // A star that ends the string takes nothing: it is the shortest match.
        if (star) pattern.segments_.emplace_back();
        star = false;
        if (!pattern.ends_line_ && !in.take_element(pattern.segments_.back())) pattern.possible_ = false;
    }
    for (Segment& segment : pattern.segments_) segment.finish(exact);
    return pattern;
}

const ByteSearch* Pattern::key() const {
    const ByteSearch* best = nullptr;
    for (const Segment& segment : segments_)
        if (segment.key().weight() > (best ? best->weight() : 0)) best = &segment.key();
    return best;
}

// --- Matching ---

// The first place of segment i at from or later.
size_t Pattern::first_place(size_t i, std::string_view text, size_t from, Patience& patience) const {
    const Segment& segment = segments_[i];
    if (!fixed(i)) return segment.find(text, from, patience);
    if (text.size() < segment.size() || text.size() - segment.size() < from) return NONE;
    const size_t place = text.size() - segment.size();
    return segment.is_at(text.data() + place) ? place : NONE;
}

// The last place of segment i at which it ends at end or earlier.
size_t Pattern::last_place(size_t i, std::string_view text, size_t end, Patience& patience) const {
    if (!fixed(i)) return segments_[i].rfind(text.substr(0, end), 0, patience);
    const size_t place = first_place(i, text, 0, patience);
    return place != NONE && place + segments_[i].size() <= end ? place : NONE;
}

// The first segment is at col: the others, each as early as can be.
std::optional<Pattern::Match> Pattern::finish_match(std::string_view text, size_t col, Patience& patience) const {
    size_t end = col + segments_.front().size();
    for (size_t i = 1; i < segments_.size(); ++i) {
        const size_t place = first_place(i, text, end, patience);
        if (place == NONE) return std::nullopt;
        end = place + segments_[i].size();
    }
    return Match{col, end - col};
}

std::optional<size_t> Pattern::length_at(std::string_view text, size_t col, Patience& patience) const {
    const Segment& head = segments_.front();
    if (!possible_ || text.size() - col < head.size() || !head.is_at(text.data() + col)) return std::nullopt;
    if (fixed(0) && text.size() - col != head.size()) return std::nullopt;
    const auto match = finish_match(text, col, patience);
    return match ? std::optional(match->len) : std::nullopt;
}

std::optional<Pattern::Match> Pattern::first(std::string_view text, size_t from, Patience& patience) const {
    if (!possible_) return std::nullopt;
    const size_t col = first_place(0, text, from, patience);
    return col == NONE ? std::nullopt : finish_match(text, col, patience);
}

std::optional<Pattern::Match> Pattern::last(std::string_view text, size_t limit, Patience& patience) const {
    if (!possible_) return std::nullopt;
    size_t end = text.size();  // where the segments still to be placed must have ended
    for (size_t i = segments_.size() - 1; i > 0; --i) {
        end = last_place(i, text, end, patience);
        if (end == NONE) return std::nullopt;
    }
    const size_t head = segments_.front().size();
    if (limit < end && end - limit > head) end = limit + head;
    const size_t col = last_place(0, text, end, patience);
    return col == NONE ? std::nullopt : finish_match(text, col, patience);
}
