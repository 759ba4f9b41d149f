#include "buffer/match.h"

#include <algorithm>
#include <climits>

#include "buffer/pattern.h"
#include "buffer/text_buffer.h"

struct Matcher::Program {
    std::string needle;
    bool exact = true;
    const volatile std::sig_atomic_t* abort = nullptr;
    bool wild = false, anchored = false;
    Pattern pattern;

    std::optional<Match> first(const Piece& line, size_t from, Patience& patience) const;
    std::optional<Match> last(const Piece& line, size_t limit, Patience& patience) const;
    std::optional<Match> at_line_start(const Piece& line, Patience& patience) const;
    std::optional<Place> scan_forward(const LineStore& lines, size_t row, Patience& patience) const;
    std::optional<Place> scan_backward(const LineStore& lines, size_t row, Patience& patience) const;
};

namespace {

std::optional<Matcher::Match> as_match(const std::optional<Pattern::Match>& match) {
    if (!match) return std::nullopt;
    return Matcher::Match{match->col, match->len};
}

std::optional<Matcher::Place> at_row(size_t row, const std::optional<Matcher::Match>& match) {
    if (!match) return std::nullopt;
    return Matcher::Place{row, match->col, match->len};
}

constexpr size_t MIN_WORK = 16;  // what looking at a row costs at least, in bytes looked at

struct Row {
    size_t row;
    std::string_view text;
};

// The rows in which a match may lie, in the order of a scan: those in which some string of bytes begins
// that every match holds, or all rows if there is none. The string is searched over each run as it lies,
// across the ends of its lines; so a row that is named may hold no match, but none is left out. Nothing
// more is named once patience ended.
class RowsBelow {
public:
    RowsBelow(const LineStore& lines, size_t row, const ByteSearch* key) : lines_(lines), key_(key), row_(row) {}

    std::optional<Row> next(Patience& patience) {
        if (!key_) {
            if (row_ >= lines_.size() || !patience.spend(MIN_WORK)) return std::nullopt;
            ++row_;
            return Row{row_ - 1, lines_.view(row_ - 1)};
        }
        while (!patience.over()) {
            const size_t hit = key_->find(run_.bytes, done_, patience);
            if (hit != ByteSearch::NONE) {
                const size_t row = lines_.row_at(run_, hit);
                const std::string_view text = lines_.view(row);
                done_ = static_cast<size_t>(text.data() - run_.bytes.data()) + text.size() + 1;
                return patience.spend(MIN_WORK) ? std::optional(Row{row, text}) : std::nullopt;
            }
            if (row_ >= lines_.size() || !patience.ask()) break;
            run_ = lines_.run_from(row_);
            row_ += run_.rows;
            done_ = 0;
        }
        return std::nullopt;
    }

private:
    const LineStore& lines_;
    const ByteSearch* key_;
    size_t row_;  // the first row behind run_
    LineRun run_;
    size_t done_ = 0;  // the bytes of run_ that need no further look
};

class RowsAbove {
public:
    // The rows above row.
    RowsAbove(const LineStore& lines, size_t row, const ByteSearch* key) : lines_(lines), key_(key), row_(row) {}

    std::optional<Row> next(Patience& patience) {
        if (!key_) {
            if (row_ == 0 || !patience.spend(MIN_WORK)) return std::nullopt;
            --row_;
            return Row{row_, lines_.view(row_)};
        }
        while (!patience.over()) {
            const size_t hit = key_->rfind(run_.bytes.substr(0, left_), 0, patience);
            if (hit != ByteSearch::NONE) {
                const size_t row = lines_.row_at(run_, hit);
                const std::string_view text = lines_.view(row);
                left_ = static_cast<size_t>(text.data() - run_.bytes.data());
                return patience.spend(MIN_WORK) ? std::optional(Row{row, text}) : std::nullopt;
            }
            if (row_ == 0 || !patience.ask()) break;
            run_ = lines_.run_to(row_ - 1);
            row_ = run_.first_row;
            left_ = run_.bytes.size();
        }
        return std::nullopt;
    }

private:
    const LineStore& lines_;
    const ByteSearch* key_;
    size_t row_;  // the first row of run_, or the one behind it before any
    LineRun run_;
    size_t left_ = 0;  // the bytes of run_ still to be searched
};

}  // namespace

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
    return program_->scan_forward(lines, row + 1, patience);
}

std::optional<Matcher::Place> Matcher::find_backward(const LineStore& lines, size_t row, size_t col) const {
    Patience patience(program_->abort);
    if (needle().empty() || lines.empty() || !program_->pattern.possible()) return std::nullopt;
    if (!patience.ask()) return std::nullopt;
    row = std::min(row, lines.size() - 1);
    if (const auto match = program_->last({lines.view(row)}, col, patience)) return at_row(row, match);
    return program_->scan_backward(lines, row, patience);
}

std::optional<Matcher::Place> Matcher::Program::scan_forward(const LineStore& lines, size_t row,
                                                             Patience& patience) const {
    RowsBelow rows(lines, row, pattern.key());
    while (const auto candidate = rows.next(patience))
        if (const auto match = first({candidate->text}, 0, patience)) return at_row(candidate->row, match);
    return std::nullopt;
}

std::optional<Matcher::Place> Matcher::Program::scan_backward(const LineStore& lines, size_t row,
                                                              Patience& patience) const {
    RowsAbove rows(lines, row, pattern.key());
    while (const auto candidate = rows.next(patience))
        if (const auto match = last({candidate->text}, candidate->text.size(), patience))
            return at_row(candidate->row, match);
    return std::nullopt;
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
