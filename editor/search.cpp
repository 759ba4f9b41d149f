#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "buffer/characters.h"
#include "editor/kpe.h"
#include "system/interrupts.h"
#include "system/report.h"
#include "system/signals.h"
#include "system/wait.h"

// --- Interrupts ---

Editor::AbortGuard::AbortGuard() {
    kpe_forget_interrupt();
    kpe_set_handler(SIGINT, kpe_sigint_handler, &prev_);  // which also ends a read that waits for an answer
}

Editor::AbortGuard::~AbortGuard() {
    sigaction(SIGINT, &prev_, nullptr);
    // A Ctrl/C that came when all was done must not end the next read of a command.
    if (prev_.sa_handler != kpe_sigint_handler) kpe_forget_interrupt();
}

bool Editor::check_abort(bool report) {
    if (!g_kpe_abort_requested) return false;
    kpe_forget_interrupt();
    message_ = "Abort";
    kpe_say(report, "*Abort*");
    return true;
}

void Editor::wait_for_interrupt() {
    kpe_flush();
    // A terminal that went away while SIGHUP is ignored tells so here. The end of a pipe is no such thing.
    struct stat input = {};
    const bool terminal = fstat(STDIN_FILENO, &input) == 0 && S_ISCHR(input.st_mode);
    const auto noted = [] { return g_kpe_abort_requested || g_kpe_end_signal; };
    while (!noted()) {
        const Wait hangup{.signals = kpe_ending_signals(), .noted = noted, .events = 0, .watches_input = terminal};
        if (kpe_wait(hangup) == Waited::Input) break;
    }
}

// --- Matches ---

const Matcher& Editor::matcher() const {
    if (!matcher_ || matcher_->needle() != last_search_ || matcher_->exact() != search_exact_)
        matcher_.emplace(last_search_, search_exact_, &g_kpe_abort_requested);
    return *matcher_;
}

bool Editor::constraints_allow(const Matcher::Piece& line, const Matcher::Match& match) const {
    const bool line_start = match.col == 0 && line.before == Matcher::LINE_START;
    const size_t end = match.col + match.len;
    if (search_begin_ && !line_start) return false;
    if (search_end_ && end != line.text.size()) return false;
    if (!search_word_) return true;
    const auto byte_before = [&] { return match.col > 0 ? line.text[match.col - 1] : static_cast<char>(line.before); };
    return (line_start || is_delim(byte_before())) && (end >= line.text.size() || is_delim(line.text[end]));
}

bool Editor::match_constraints_ok(size_t row, size_t col, size_t len) const {
    if (row >= buffer_.line_count() || col > buffer_.length(row)) return false;
    return constraints_allow({buffer_.view(row)}, {col, len});
}

std::optional<Matcher::Match> Editor::next_allowed(const Matcher::Piece& line, size_t from) const {
    const Matcher& search = matcher();
    while (!g_kpe_abort_requested) {
        const auto match = search.first_in(line, from);
        if (!match || constraints_allow(line, *match)) return match;
        if (search_begin_) break;  // the later ones do not start the line either
        if (match->len == 0 && match->col == line.text.size()) break;
        from = match->col + std::max<size_t>(match->len, 1);
    }
    return std::nullopt;
}

std::optional<Matcher::Place> Editor::next_place(const LineStore& lines, size_t row, size_t col) const {
    while (!g_kpe_abort_requested) {
        const auto place = matcher().find_forward(lines, row, col);
        if (!place) break;
        const Matcher::Piece line{lines.view(place->row)};
        if (constraints_allow(line, {place->col, place->len})) return place;
        if (const auto match = next_allowed(line, place->col))
            return Matcher::Place{place->row, match->col, match->len};
        row = place->row + 1;
        col = 0;
    }
    return std::nullopt;
}

std::optional<Matcher::Match> Editor::previous_allowed(const Matcher::Piece& line, Matcher::Match match) const {
    while (!g_kpe_abort_requested) {
        if (constraints_allow(line, match)) return match;
        if (match.col == 0) break;
        if (matcher().wild()) {
            // The next search would start at this column and find the same again, for ever.
            wait_for_interrupt();
            break;
        }
        const auto next = matcher().last_in(line, match.col);
        if (!next) break;
        match = *next;
    }
    return std::nullopt;
}

std::optional<Matcher::Place> Editor::previous_place(size_t row, size_t col) const {
    const LineStore& lines = buffer_.lines();
    while (!g_kpe_abort_requested && !g_kpe_end_signal) {
        const auto place = matcher().find_backward(lines, row, col);
        if (!place) break;
        if (const auto match = previous_allowed({lines.view(place->row)}, {place->col, place->len}))
            return Matcher::Place{place->row, match->col, match->len};
        if (place->row == 0) break;
        row = place->row - 1;
        col = buffer_.length(row);
    }
    return std::nullopt;
}

// --- Searches from a place ---

std::optional<std::pair<size_t, size_t>> Editor::search_forward(size_t row, size_t col) const {
    const auto place = next_place(buffer_.lines(), row, col);
    return place ? std::optional(std::pair(place->row, place->col)) : std::nullopt;
}

std::optional<std::pair<size_t, size_t>> Editor::search_backward(size_t row, size_t col) const {
    const auto place = previous_place(row, col);
    return place ? std::optional(std::pair(place->row, place->col)) : std::nullopt;
}

bool Editor::on_last_match() const {
    if (!on_match_ || match_needle_ != last_search_ || cursor_row_ != match_row_) return false;
    if (cursor_col_ == match_col_) return true;
    const std::string_view line = buffer_.view(cursor_row_);
    return match_col_ < line.size() && cursor_col_ == kpe_character_start(line, match_col_);
}

bool Editor::find_next(Direction d) {
    if (last_search_.empty()) {
        set_error("No search string");
        return false;
    }
    const auto place = d == Direction::Backup
                           ? previous_place(cursor_row_, cursor_col_)
                           : next_place(buffer_.lines(), cursor_row_, on_last_match() ? match_col_ + 1 : cursor_col_);
    if (!place) {
        if (g_kpe_abort_requested)
            message_ = "Abort";
        else
            set_error("String was not found");
        return false;
    }
    cursor_row_ = match_row_ = place->row;
    cursor_col_ = match_col_ = place->col;
    last_match_len_ = place->len;
    on_match_ = true;
    match_needle_ = last_search_;
    message_ = "Found: " + last_search_;
    return true;
}
