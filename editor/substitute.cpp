#include <algorithm>

#include "buffer/row_rewriter.h"
#include "editor/kpe.h"
#include "editor/line_reader.h"
#include "system/ascii.h"
#include "system/interrupts.h"
#include "system/report.h"

namespace {

constexpr const char* NO_SEARCH_STRING = "No active search string";

// Shows the row and asks. The answer is trimmed and upper-cased; nothing at the end of input or on Ctrl/C.
std::optional<std::string> ask(size_t row, std::string_view line, std::string_view question) {
    kpe_print(std::to_string(row + 1));
    kpe_print(" ");
    kpe_print(line);
    kpe_end_line();
    const auto typed = kpe_read_typed(question, {.kind = LineRequest::Kind::Answer});
    if (!typed) return std::nullopt;
    std::string answer(kpe_trim(*typed));
    std::transform(answer.begin(), answer.end(), answer.begin(), kpe_to_upper);
    return answer;
}

constexpr std::string_view YES_OR_NO = "Substitute? [Y/N]: ";
constexpr std::string_view YES_NO_ALL_OR_QUIT = "Substitute? [Y/N/A/Q]: ";

// The rows first to last as they were when this was made, searched without regard to BEGIN, END and WORD.
class Candidates {
public:
    Candidates(const LineStore& lines, size_t first, size_t last, const Matcher& matcher)
        : lines_(lines), last_(last), matcher_(matcher) {
        if (last - first >= NEARBY && last + 1 < lines.size()) lines_ = lines.slice(0, last + 1);
    }
    const LineStore& lines() const { return lines_; }
    // The first match from row on. The nearby rows are tried one by one, which costs less than to start a scan.
    std::optional<Matcher::Place> from(size_t row) const {
        const size_t end = std::min(row + NEARBY, last_ + 1);
        for (; row < end; ++row)
            if (const auto match = matcher_.first_in({lines_.view(row)}, 0))
                return Matcher::Place{row, match->col, match->len};
        if (row > last_) return std::nullopt;
        return matcher_.find_forward(lines_, row, 0);
    }

private:
    static constexpr size_t NEARBY = 64;
    LineStore lines_;
    size_t last_;
    const Matcher& matcher_;
};

// One line that grows from left to right: what is done, and the rest that is still searched.
struct GrowingLine {
    std::string& done;
    Matcher::Piece rest;
    bool changed = false;

    // Keeps the bytes in front of a match, so that the match starts at done.size().
    void keep(size_t bytes) {
        done.append(rest.text.substr(0, bytes));
        rest.text.remove_prefix(bytes);
        note_before();
    }
    void replace(size_t bytes, std::string_view text) {
        changed = changed || rest.text.substr(0, bytes) != text;
        rest.text.remove_prefix(bytes);
        done.append(text);
        note_before();
    }

private:
    void note_before() {
        if (!done.empty()) rest.before = static_cast<unsigned char>(done.back());
    }
};

}  // namespace

// Replaces matches without asking. The rows are read as they were; the changed ones are written together.
struct Editor::Substitution {
    // empty_matches: they are replaced too; otherwise one ends its row. typed: how changed rows are typed, or null.
    Substitution(Editor& on, const std::string& by, bool empty_matches, const Qualifiers* typed_with)
        : editor(on), text(by), typed(typed_with), with_empty(empty_matches), rewriter(on.buffer_.rewrite()) {}

    Editor& editor;
    const std::string& text;
    const Qualifiers* const typed;
    size_t count = 0;
    size_t last_row = 0, last_col = 0;  // of the last match, if count is not 0
    bool repeats = false;               // an empty match was replaced by nothing: the next one is the same

    // From (row, col), where col may lie inside the row, to the row last.
    void run(size_t row, size_t col, size_t last) {
        if (col == 0 && can_be_at_once(row, last)) return run_at_once(row, last);
        const Candidates candidates(editor.buffer_.lines(), row, last, editor.matcher());
        for (auto at = std::optional(Matcher::Place{row, col, 0}); at; at = candidates.from(at->row + 1)) {
            replace_in_row(at->row, candidates.lines().view(at->row), at->col);
            if (repeats || g_kpe_abort_requested) break;
            if (typed_rows.size() >= TYPED_TOGETHER) finish();
        }
        finish();
    }
    // A row that is to be typed whether run() changes it or not.
    void note_changed(size_t row) { typed_rows.push_back(row); }

private:
    static constexpr size_t LONG_ROW = size_t{64} << 10;  // bytes
    static constexpr size_t TYPED_TOGETHER = 500;         // so few that Ctrl/C stops soon after what is seen

    const bool with_empty;
    RowRewriter rewriter;
    std::string built;               // the new text of the row at hand
    std::optional<size_t> mark_col;  // where the mark goes in its row, which was changed
    std::vector<size_t> typed_rows;

    // Whether nothing has to be looked at row by row. A short row by itself is sooner changed where it is.
    bool can_be_at_once(size_t first, size_t last) const {
        const TextBuffer& buffer = editor.buffer_;
        const bool marked = buffer.has_mark() && first <= buffer.mark_row() && buffer.mark_row() <= last;
        const bool limited = editor.search_begin_ || editor.search_end_ || editor.search_word_;
        if (typed || marked || limited || (first == last && buffer.length(first) < LONG_ROW)) return false;
        return editor.matcher().literal() != nullptr;
    }

    void run_at_once(size_t first, size_t last) {
        const LineStore::Hits done = editor.buffer_.replace_all(first, last, editor.matcher(), text);
        count += done.count;
        last_row = done.last_row;
        last_col = done.last_col;
    }

    void replace_in_row(size_t row, std::string_view old, size_t from) {
        built.clear();
        built.reserve(old.size() + old.size() / 8);
        GrowingLine line{built, {old}};
        const bool has_mark = editor.buffer_.has_mark() && editor.buffer_.mark_row() == row;
        size_t mark = has_mark ? editor.buffer_.mark_col() : 0;
        const size_t count_before = count;
        while (const auto match = editor.next_allowed(line.rest, from)) {
            if (match->len == 0 && !with_empty) break;
            from = 0;
            line.keep(match->col);
            last_row = row;
            last_col = built.size();
            if (mark > last_col && line.rest.text.substr(0, match->len) != text)
                mark = mark < last_col + match->len ? last_col : mark - match->len + text.size();
            line.replace(match->len, text);
            ++count;
            if (match->len > 0) continue;
            repeats = text.empty();
            if (repeats || line.rest.text.empty()) break;
            line.keep(1);
        }
        if (count == count_before) return;
        if (typed && (typed_rows.empty() || typed_rows.back() != row)) typed_rows.push_back(row);
        if (!line.changed) return;
        line.keep(line.rest.text.size());
        if (has_mark) mark_col = mark;
        rewriter.put(row, built);
    }

    // Brings the text up to date, and types the rows gathered.
    void finish() {
        TextBuffer& buffer = editor.buffer_;
        rewriter.finish();
        if (mark_col) buffer.set_mark(buffer.mark_row(), *mark_col);
        mark_col.reset();
        if (typed)
            for (const size_t row : typed_rows) editor.type_line_at(row, typed->brief, typed->brief_cols);
        typed_rows.clear();
    }
};

void Editor::substitute_command(const std::string& args, const Qualifiers& q, bool report) {
    const std::string s = trim(args);
    const bool delimited = !s.empty() && kpe_is_punct(s[0]) && s[0] != '_';
    std::string replacement, tail;
    if (delimited) {
        const size_t second = s.find(s[0], 1);
        const size_t third = second == s.npos ? s.npos : s.find(s[0], second + 1);
        if (third == s.npos) return kpe_complain(report, "Invalid SUBSTITUTE syntax");
        if (second > 1) last_search_ = s.substr(1, second - 1);
        replacement = s.substr(second + 1, third - second - 1);
        tail = trim(s.substr(third + 1));
    }
    if (last_search_.empty()) return kpe_complain(report, NO_SEARCH_STRING);
    if (!delimited) replacement = s.empty() ? paste_text_content() : strip_optional_quotes(s);
    if (tail.empty())
        return q.global ? substitute_global(replacement, q.query, report) : substitute_single(replacement, q, report);
    const auto range = parse_line_range(tail);
    if (!range) return kpe_complain(report, "Invalid range: " + tail);
    substitute_range(*range, replacement, q, report);
}

void Editor::substitute_single(const std::string& replacement, const Qualifiers& q, bool report) {
    const AbortGuard guard;
    auto place = next_place(buffer_.lines(), cursor_row_, cursor_col_);
    if (!place && (cursor_row_ > 0 || cursor_col_ > 0)) place = next_place(buffer_.lines(), 0, 0);
    if (check_abort(report)) return;
    if (!place) return kpe_complain(report, "String not found: " + last_search_);
    cursor_row_ = place->row;
    cursor_col_ = place->col;
    last_match_len_ = place->len;
    if (!q.query || !report) return replace_and_go_on(replacement, q, report);

    record_changes();
    const auto answer = ask(cursor_row_, buffer_.view(cursor_row_), YES_OR_NO);
    if (check_abort(report) || !answer) return;
    if (*answer == "Y") return replace_and_go_on(replacement, q, report);
    if (!q.stay) find_next(Direction::Advance);
    check_abort(report);
}

// The match of last_match_len_ bytes at the cursor.
void Editor::replace_and_go_on(const std::string& replacement, const Qualifiers& q, bool report) {
    buffer_.replace_in_line(cursor_row_, cursor_col_, last_match_len_, replacement);
    if (!q.stay) {
        cursor_col_ += replacement.size();
        find_next(Direction::Advance);
        check_abort(report);
    }
    message_ = "Substituted";
    if (report) type_current_line(false, 40);
}

void Editor::substitute_global(const std::string& replacement, bool query, bool report) {
    if (last_search_.empty()) return kpe_complain(report, NO_SEARCH_STRING);
    const AbortGuard guard;
    const std::string trimmed = trim(replacement);
    const std::string text = trimmed.empty() ? paste_text_content() : strip_optional_quotes(trimmed);
    size_t count = 0;
    if (query && report) {
        count = ask_everywhere(text);
    } else {
        Substitution all(*this, text, /*empty_matches=*/true, /*typed_with=*/nullptr);
        all.run(0, 0, buffer_.line_count() - 1);
        count = all.count;
        if (count > 0) {
            cursor_row_ = all.last_row;
            cursor_col_ = all.last_col;
        }
        if (all.repeats) wait_for_interrupt();
    }
    check_abort(report);
    message_ = kpe_counted(count, "substitution");
    kpe_say(report, message_);
}

// The global form with a question at each match; how many were replaced.
size_t Editor::ask_everywhere(const std::string& text) {
    size_t count = 0, row = 0, col = 0;
    while (const auto place = next_place(buffer_.lines(), row, col)) {
        cursor_row_ = row = place->row;
        cursor_col_ = place->col;
        record_changes();
        const auto answer = ask(row, buffer_.view(row), YES_OR_NO);
        if (g_kpe_abort_requested || !answer) break;
        const bool yes = *answer == "Y";
        if (yes) {
            buffer_.replace_in_line(row, place->col, place->len, text);
            ++count;
        }
        col = place->col + (yes ? text.size() : place->len);
        // Behind an empty match the search goes on one byte later, or it would find the same again.
        if (place->len > 0 || (yes && text.empty())) continue;
        if (col < buffer_.length(row)) {
            ++col;
        } else {
            ++row;
            col = 0;
        }
    }
    return count;
}

void Editor::substitute_range(const LineRange& range, const std::string& replacement, const Qualifiers& q,
                              bool report) {
    const size_t last = std::min(range.last, buffer_.line_count() - 1);
    const AbortGuard guard;
    size_t count = 0;
    if (range.first <= last) {
        Substitution rest(*this, replacement, /*empty_matches=*/false, report ? &q : nullptr);
        if (q.query && report)
            ask_in_rows({range.first, last}, rest);
        else
            rest.run(range.first, 0, last);
        count = rest.count;
    }
    cursor_row_ = range.first;
    cursor_col_ = 0;
    check_abort(report);
    message_ = count == 0 ? "No substitutions" : kpe_counted(count, "substitution");
    kpe_say(report && startup_file_depth_ == 0, message_);
}

// The range form with a question at each match, until one is answered by "A" or "Q".
void Editor::ask_in_rows(const LineRange& range, Substitution& rest) {
    const Candidates candidates(buffer_.lines(), range.first, range.last, matcher());
    bool quit = false;
    for (auto at = candidates.from(range.first); at && !quit; at = candidates.from(at->row + 1)) {
        const size_t row = at->row;
        bool changed = false;
        for (size_t col = 0; !quit;) {
            const auto match = next_allowed({buffer_.view(row)}, col);
            if (!match || match->len == 0) break;
            record_changes();
            const auto answer = ask(row, buffer_.view(row), YES_NO_ALL_OR_QUIT);
            quit = check_abort(/*report=*/true) || !answer || *answer == "Q";
            if (quit) break;
            col = match->col + match->len;
            if (*answer != "Y" && *answer != "A") continue;
            buffer_.replace_in_line(row, match->col, match->len, rest.text);
            col = match->col + rest.text.size();
            ++rest.count;
            changed = true;
            if (*answer != "A") continue;
            rest.note_changed(row);
            return rest.run(row, col, range.last);
        }
        if (changed) type_line_at(row, rest.typed->brief, rest.typed->brief_cols);
    }
}
