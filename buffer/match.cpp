#include "buffer/match.h"

#include <algorithm>
#include <atomic>
#include <climits>
#include <utility>
#include <vector>

#include "buffer/pattern.h"
#include "buffer/text_buffer.h"
#include "system/threads.h"

namespace {

std::optional<Matcher::Match> as_match(const std::optional<Pattern::Match>& match) {
    if (!match) return std::nullopt;
    return Matcher::Match{match->col, match->len};
}

std::optional<Matcher::Place> at_row(size_t row, const std::optional<Matcher::Match>& match) {
    if (!match) return std::nullopt;
    return Matcher::Place{row, match->col, match->len};
}

constexpr size_t MIN_WORK = 16;             // what looking at a row costs at least, in bytes looked at
constexpr size_t NEARBY = size_t{8} << 20;  // bytes that one thread looks at before others help

struct Row {
    size_t row;
    std::string_view text;
};

// The rows in which a match may lie, in the order of a scan: those in which some string of bytes begins that every
// match holds, or all rows if there is none. The string is searched over each run as it lies, across the ends of its
// lines; so a row that is named may hold no match, but none is left out. Nothing more is named once patience ended, or
// once so many bytes were looked at; what is left then begins at a run.
class RowsBelow {
public:
    // Rows [begin, end), from the first to the last.
    RowsBelow(const LineStore& lines, size_t begin, size_t end, const ByteSearch* key, size_t most = SIZE_MAX)
        : lines_(lines), key_(key), row_(begin), end_(end), left_(most) {}

    std::optional<Row> next(Patience& patience) {
        if (!key_) {
            if (row_ >= end_ || left_ == 0 || !patience.spend(MIN_WORK)) return std::nullopt;
            const std::string_view text = lines_.view(row_);
            left_ -= std::min(left_, text.size() + MIN_WORK);
            return Row{row_++, text};
        }
        while (!patience.over()) {
            const size_t hit = key_->find(run_.bytes, done_, patience);
            if (hit != ByteSearch::NONE) {
                const size_t row = lines_.row_at(run_, hit);
                const std::string_view text = lines_.view(row);
                done_ = static_cast<size_t>(text.data() - run_.bytes.data()) + text.size() + 1;
                return patience.spend(MIN_WORK) ? std::optional(Row{row, text}) : std::nullopt;
            }
            if (row_ >= end_ || left_ == 0 || !patience.ask()) break;
            run_ = *lines_.runs(row_, end_).begin();
            left_ -= std::min(left_, run_.bytes.size());
            row_ += run_.rows;
            done_ = 0;
        }
        return std::nullopt;
    }

    static std::pair<size_t, size_t> share(const std::vector<size_t>& rows, size_t part) {
        return {rows[part], rows[part + 1]};
    }
    std::pair<size_t, size_t> rest() const { return {row_, end_}; }  // [begin, end) of the rows not looked at

private:
    const LineStore& lines_;
    const ByteSearch* key_;
    size_t row_;  // the first row behind run_
    const size_t end_;
    size_t left_;  // bytes
    LineRun run_;
    size_t done_ = 0;  // the bytes of run_ that need no further look
};

class RowsAbove {
public:
    // Rows [begin, end), from the last to the first.
    RowsAbove(const LineStore& lines, size_t begin, size_t end, const ByteSearch* key, size_t most = SIZE_MAX)
        : lines_(lines), key_(key), row_(end), begin_(begin), left_(most) {}

    std::optional<Row> next(Patience& patience) {
        if (!key_) {
            if (row_ <= begin_ || left_ == 0 || !patience.spend(MIN_WORK)) return std::nullopt;
            const std::string_view text = lines_.view(--row_);
            left_ -= std::min(left_, text.size() + MIN_WORK);
            return Row{row_, text};
        }
        while (!patience.over()) {
            const size_t hit = key_->rfind(run_.bytes.substr(0, to_), 0, patience);
            if (hit != ByteSearch::NONE) {
                const size_t row = lines_.row_at(run_, hit);
                const std::string_view text = lines_.view(row);
                to_ = static_cast<size_t>(text.data() - run_.bytes.data());
                return patience.spend(MIN_WORK) ? std::optional(Row{row, text}) : std::nullopt;
            }
            if (row_ <= begin_ || left_ == 0 || !patience.ask()) break;
            run_ = lines_.run_to(row_ - 1);
            if (run_.first_row < begin_) {
                run_.bytes.remove_prefix(static_cast<size_t>(lines_.view(begin_).data() - run_.bytes.data()));
                run_.rows -= begin_ - run_.first_row;
                run_.first_row = begin_;
            }
            left_ -= std::min(left_, run_.bytes.size());
            row_ = run_.first_row;
            to_ = run_.bytes.size();
        }
        return std::nullopt;
    }

    static std::pair<size_t, size_t> share(const std::vector<size_t>& rows, size_t part) {
        return {rows[rows.size() - 2 - part], rows[rows.size() - 1 - part]};
    }
    std::pair<size_t, size_t> rest() const { return {begin_, row_}; }

private:
    const LineStore& lines_;
    const ByteSearch* key_;
    size_t row_;  // the first row of run_, or the one behind it before any
    const size_t begin_;
    size_t left_;  // bytes
    LineRun run_;
    size_t to_ = 0;  // the bytes of run_ still to be searched
};

}  // namespace

struct Matcher::Program {
    std::string needle;
    bool exact = true;
    const volatile std::sig_atomic_t* abort = nullptr;
    bool wild = false, anchored = false;
    Pattern pattern;

    std::optional<Match> first(const Piece& line, size_t from, Patience& patience) const;
    std::optional<Match> last(const Piece& line, size_t limit, Patience& patience) const;
    std::optional<Match> at_line_start(const Piece& line, Patience& patience) const;
    template <class Rows>
    std::optional<Place> scan(Rows& rows, Patience& patience) const;
    template <class Rows>
    std::optional<Place> scan_all(const LineStore& lines, size_t begin, size_t end, Patience& patience) const;
    std::optional<Match> in_row(const RowsBelow&, std::string_view line, Patience& patience) const;
    std::optional<Match> in_row(const RowsAbove&, std::string_view line, Patience& patience) const;
};

Matcher::Matcher() : Matcher(std::string_view(), /*exact=*/true) {}

Matcher::Matcher(std::string_view needle, bool exact, const volatile std::sig_atomic_t* abort)
    : program_(std::make_unique<Program>()) {
    Program& p = *program_;
    p.needle = needle;
    p.exact = exact;
    p.abort = abort;
    p.wild = TextBuffer::has_wildcards(p.needle);
    p.anchored = p.wild && needle.front() == '^';
    p.pattern = p.wild ? Pattern::wildcard(needle.substr(p.anchored ? 1 : 0), exact) : Pattern::literal(needle, exact);
}

Matcher::~Matcher() = default;
Matcher::Matcher(Matcher&&) noexcept = default;
Matcher& Matcher::operator=(Matcher&&) noexcept = default;

const std::string& Matcher::needle() const { return program_->needle; }

bool Matcher::exact() const { return program_->exact; }

bool Matcher::wild() const { return program_->wild; }

const ByteSearch* Matcher::literal() const {
    const bool single = !wild() && needle().find('\n') == std::string::npos;
    return single ? program_->pattern.key() : nullptr;
}

const volatile std::sig_atomic_t* Matcher::abort() const { return program_->abort; }

// --- In one line ---

std::optional<Matcher::Match> Matcher::Program::at_line_start(const Piece& line, Patience& patience) const {
    if (line.before != LINE_START) return std::nullopt;
    const auto len = pattern.length_at(line.text, 0, patience);
    return len ? std::optional(Match{0, *len}) : std::nullopt;
}

std::optional<Matcher::Match> Matcher::Program::first(const Piece& line, size_t from, Patience& patience) const {
    if (needle.empty()) return std::nullopt;
    from = std::min(from, line.text.size());
    if (!anchored) return as_match(pattern.first(line.text, from, patience));
    return from == 0 ? at_line_start(line, patience) : std::nullopt;
}

std::optional<Matcher::Match> Matcher::Program::last(const Piece& line, size_t limit, Patience& patience) const {
    if (needle.empty()) return std::nullopt;
    if (anchored) return at_line_start(line, patience);
    limit = std::min(limit, line.text.size());
    return as_match(pattern.last(wild ? line.text : line.text.substr(0, limit), limit, patience));
}

std::optional<Matcher::Match> Matcher::first_in(const Piece& line, size_t from) const {
    Patience patience(program_->abort);
    return program_->first(line, from, patience);
}

std::optional<Matcher::Match> Matcher::last_in(const Piece& line, size_t limit) const {
    Patience patience(program_->abort);
    return program_->last(line, limit, patience);
}

size_t Matcher::length_at(std::string_view line, size_t col) const {
    if (!wild()) return needle().size();
    if (col > line.size()) return 0;
    Patience patience(program_->abort);
    const auto len = program_->pattern.length_at(line, col, patience);
    if (patience.over()) return 0;
    return len.value_or(needle().size());
}

// --- Over many lines ---

std::optional<Matcher::Place> Matcher::find_forward(const LineStore& lines, size_t row, size_t col) const {
    Patience patience(program_->abort);
    if (needle().empty() || row >= lines.size() || !program_->pattern.possible()) return std::nullopt;
    if (!patience.ask()) return std::nullopt;
    if (const auto match = program_->first({lines.view(row)}, col, patience)) return at_row(row, match);
    return program_->scan_all<RowsBelow>(lines, row + 1, lines.size(), patience);
}

std::optional<Matcher::Place> Matcher::find_backward(const LineStore& lines, size_t row, size_t col) const {
    Patience patience(program_->abort);
    if (needle().empty() || lines.empty() || !program_->pattern.possible()) return std::nullopt;
    if (!patience.ask()) return std::nullopt;
    row = std::min(row, lines.size() - 1);
    if (const auto match = program_->last({lines.view(row)}, col, patience)) return at_row(row, match);
    return program_->scan_all<RowsAbove>(lines, 0, row, patience);
}

std::optional<Matcher::Match> Matcher::Program::in_row(const RowsBelow&, std::string_view line,
                                                       Patience& patience) const {
    return first({line}, 0, patience);
}

std::optional<Matcher::Match> Matcher::Program::in_row(const RowsAbove&, std::string_view line,
                                                       Patience& patience) const {
    return last({line}, line.size(), patience);
}

// The match in the first of the rows that has one.
template <class Rows>
std::optional<Matcher::Place> Matcher::Program::scan(Rows& rows, Patience& patience) const {
    while (const auto candidate = rows.next(patience))
        if (const auto match = in_row(rows, candidate->text, patience)) return at_row(candidate->row, match);
    return std::nullopt;
}

// The same of rows [begin, end). Where the match is not near, threads look at many shares at once; the answer is that
// of the first share that has one.
template <class Rows>
std::optional<Matcher::Place> Matcher::Program::scan_all(const LineStore& lines, size_t begin, size_t end,
                                                         Patience& patience) const {
    Rows nearby(lines, begin, end, pattern.key(), NEARBY);
    const auto near_match = scan(nearby, patience);
    const auto [from, to] = nearby.rest();
    if (near_match || patience.over() || from >= to) return near_match;

    const std::vector<size_t> rows = lines.shares(from, to);
    std::vector<std::optional<Place>> found(rows.size() - 1);
    std::atomic<size_t> first_found = found.size();
    kpe_share_work(found.size(), [&](size_t part) {
        if (part > first_found) return;
        const auto [first, last] = Rows::share(rows, part);
        Rows share(lines, first, last, pattern.key());
        Patience own(abort);
        found[part] = scan(share, own);
        size_t before = first_found;
        while (found[part] && part < before && !first_found.compare_exchange_weak(before, part)) {
        }
    });
    if (!patience.ask() || first_found == found.size()) return std::nullopt;
    return found[first_found];
}

// --- The buffer's own operations ---

bool TextBuffer::has_wildcards(const std::string& s) {
    constexpr std::string_view WILD = "*?%[^$";
    for (size_t i = 0; i < s.size(); ++i) {
        if (s[i] == '\\')
            ++i;
        else if (WILD.find(s[i]) != std::string_view::npos)
            return true;
    }
    return false;
}

std::string TextBuffer::to_lower(const std::string& s) { return kpe_lowered(s); }

int TextBuffer::wmatch(const char* pattern, const char* text, size_t len) {
    Patience patience(nullptr);
    const auto found = Pattern::wildcard(pattern, /*exact=*/true).length_at({text, len}, 0, patience);
    return found ? static_cast<int>(std::min(*found, size_t{INT_MAX})) : -1;
}

size_t TextBuffer::match_len_at(const std::string& needle, size_t row, size_t col, bool exact) const {
    if (row >= lines_.size()) return needle.size();
    return Matcher(needle, exact).length_at(view(row), col);
}

std::optional<std::pair<size_t, size_t>> TextBuffer::find_forward(const std::string& needle, size_t row, size_t col,
                                                                  bool exact) const {
    const auto place = Matcher(needle, exact).find_forward(lines_, row, col);
    return place ? std::optional(std::pair(place->row, place->col)) : std::nullopt;
}

std::optional<std::pair<size_t, size_t>> TextBuffer::find_backward(const std::string& needle, size_t row, size_t col,
                                                                   bool exact) const {
    const auto place = Matcher(needle, exact).find_backward(lines_, row, col);
    return place ? std::optional(std::pair(place->row, place->col)) : std::nullopt;
}
