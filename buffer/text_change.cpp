#include "buffer/text_change.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <unordered_map>
#include <utility>

#include "buffer/edited_line.h"
#include "buffer/row_pairs.h"
#include "buffer/row_rewriter.h"
#include "system/crc32c.h"
#include "system/packed.h"

// A change is: the checksum of some bytes of the text after it, how many rows that text has, then the edits from the
// first row to the last. Each begins with its kind and the number of rows between it and the edit before.
//
//   Bytes   of one row: how many places, and for each: bytes that stay, bytes that go, and the text that comes
//   Rows    how many old rows go, how many bytes of the first and of the last of them stay, then the new rows as
//           pieces, ended by the piece End:
//             Lines    how many rows, and the text of each
//             Source   rows of a source: its number, the first row, how many
//             Old      rows of the old text: the first row, how many

namespace {

enum class Edit : uint8_t { Bytes, Rows };
enum class Piece : uint8_t { End, Lines, Source, Old };

template <class Kind>
void pack_kind(std::string& to, Kind kind) {
    to += static_cast<char>(kind);
}

// --- The check ---

constexpr size_t NEAR = 32;       // bytes before and behind a place that are looked at
constexpr size_t CHECK_SIZE = 4;  // bytes
constexpr size_t MOST_ROWS = size_t{1} << 40;

uint32_t check_of(const LineStore& text, size_t row, size_t column) {
    std::string numbers;
    kpe_pack(numbers, text.size());
    const uint32_t sum = kpe_crc32c(numbers);
    if (row >= text.size()) return sum;
    const std::string_view line = text.view(row);
    const size_t from = column - std::min({column, NEAR, line.size()});
    return kpe_crc32c(line.substr(std::min(from, line.size()), 2 * NEAR), sum);
}

// --- Places in a row ---

struct Place {
    size_t stays, goes;  // bytes
    std::string_view comes;
};

// Finds the places in which a row differs from an old one. To look for the end of each place costs more than it saves
// where a text has changed throughout, so an object gives that up after many misses.
class PlaceFinder {
public:
    const std::vector<Place>& find(std::string_view old, std::string_view now) {
        places_.clear();
        const CommonEnds ends = kpe_common_ends(old, now);
        size_t stays = ends.head;
        old = old.substr(ends.head, old.size() - ends.both());
        now = now.substr(ends.head, now.size() - ends.both());
        while (!old.empty() || !now.empty()) {
            const auto [goes, comes] = end_of_place(old, now);
            places_.push_back({stays, goes, now.substr(0, comes)});
            old.remove_prefix(goes);
            now.remove_prefix(comes);
            const auto end = std::mismatch(old.begin(), old.end(), now.begin(), now.end());
            stays = static_cast<size_t>(end.first - old.begin());
            old.remove_prefix(stays);
            now.remove_prefix(stays);
        }
        return places_;
    }

private:
    static constexpr size_t AGAIN = sizeof(uint64_t);  // so many equal bytes mean that the place has ended
    static constexpr size_t FARTHEST = 32;             // bytes that a place may have, old and new together
    static constexpr int MOST_MISSES = 1000;

    static uint64_t word(std::string_view bytes, size_t at) {
        uint64_t word = 0;
        std::memcpy(&word, bytes.data() + at, sizeof word);
        return word;
    }
    // Of the place that both begin with: how many bytes of it are old and how many are new.
    std::pair<size_t, size_t> end_of_place(std::string_view old, std::string_view now) {
        const std::pair all(old.size(), now.size());
        if (old.size() < AGAIN || now.size() < AGAIN || misses_ > MOST_MISSES) return all;
        const size_t in_old = old.size() - AGAIN, in_now = now.size() - AGAIN;
        for (size_t both = 1; both <= std::min(FARTHEST, in_old + in_now); ++both) {
            const size_t least = both > in_now ? both - in_now : 0;
            for (size_t goes = least; goes <= std::min(both, in_old); ++goes)
                if (word(old, goes) == word(now, both - goes)) return {goes, both - goes};
        }
        ++misses_;
        return all;
    }

    std::vector<Place> places_;
    int misses_ = 0;
};

// --- Packing ---

class Packer {
public:
    Packer(const LineStore& old, const LineStore& now, const SourceTexts& sources, std::vector<size_t>& used)
        : old_(old), now_(now), sources_(sources), used_(used) {}

    std::string pack() {
        const LineStore::Difference difference = now_.difference_to(old_);
        if (difference.none()) return "";
        first_ = difference.first;
        last_ = difference.first + difference.rows;
        edits_.assign(CHECK_SIZE, '\0');
        kpe_pack(edits_, uint64_t{now_.size()});
        if (difference.old_rows == difference.rows)
            pack_pairs(difference);
        else
            pack_rows(difference.first, difference.old_rows, difference.rows);
        const uint32_t check = check_of(now_, checked_row_, checked_column_);
        std::memcpy(edits_.data(), &check, CHECK_SIZE);
        return std::move(edits_);
    }

private:
    void begin(Edit kind, size_t row) {
        pack_kind(edits_, kind);
        kpe_pack(edits_, uint64_t{row - done_});
        if (!any_) checked_row_ = row;
        any_ = true;
    }

    // The rows of both stand side by side; some of them are equal.
    void pack_pairs(const LineStore::Difference& all) {
        RowPairs pairs(old_, all.first, now_, all.first);
        const bool single = all.rows == 1;
        for (size_t row = all.first; (row += pairs.skip_equal(last_ - row)) < last_;) {
            const auto copied = single ? std::nullopt : copied_rows(row, pairs.newer());
            if (copied && copied->count > 0) {
                pack_rows(row, copied->count, copied->count);
                for (size_t i = 0; i < copied->count; ++i) pairs.step();
                row += copied->count;
            } else {
                pack_places(row, pairs.older(), pairs.newer());
                pairs.step();
                ++row;
            }
        }
    }

    void pack_places(size_t row, std::string_view old, std::string_view now) {
        const std::vector<Place>& places = places_.find(old, now);
        const bool first = !any_;
        begin(Edit::Bytes, row);
        kpe_pack(edits_, uint64_t{places.size()});
        for (const Place& place : places) {
            kpe_pack(edits_, uint64_t{place.stays});
            kpe_pack(edits_, uint64_t{place.goes});
            kpe_pack(edits_, place.comes);
        }
        if (first) checked_column_ = places.front().stays + places.front().comes.size();
        done_ = row + 1;
    }

    void pack_rows(size_t row, size_t old_rows, size_t rows) {
        const size_t end = row + rows;
        CommonEnds ends;
        if (old_rows > 0 && rows > 0) ends = shared_ends(row, old_rows, rows);
        const bool first = !any_;
        begin(Edit::Rows, row);
        kpe_pack(edits_, uint64_t{old_rows});
        kpe_pack(edits_, uint64_t{ends.head});
        kpe_pack(edits_, uint64_t{ends.tail});
        if (first) checked_column_ = ends.head;
        size_t lines_from = row;
        while (row < end) {
            const std::string_view line = now_.view(row);
            const bool whole = (row > end - rows || ends.head == 0) && (row + 1 < end || ends.tail == 0);
            auto copied = whole ? copied_rows(row, line) : std::nullopt;
            if (!copied) {
                ++row;
                continue;
            }
            if (ends.tail > 0) copied->count = std::min(copied->count, end - 1 - row);
            pack_lines(lines_from, row, end - rows, end, ends);
            pack_copied(*copied);
            lines_from = row += copied->count;
        }
        pack_lines(lines_from, end, end - rows, end, ends);
        pack_kind(edits_, Piece::End);
        done_ = end;
    }

    // What the first rows and the last rows have in common. Rows that can be copied whole do not count.
    CommonEnds shared_ends(size_t row, size_t old_rows, size_t rows) const {
        const std::string_view old_first = old_.view(row), first = now_.view(row);
        const std::string_view old_last = old_.view(row + old_rows - 1), last = now_.view(row + rows - 1);
        CommonEnds ends;
        if (!sources_.find(first)) ends.head = kpe_common_ends(old_first, first).head;
        if (sources_.find(last)) return ends;
        const auto behind_head = [&](std::string_view line, bool same_row) {
            return same_row ? line.substr(ends.head) : line;
        };
        const std::string_view a = behind_head(old_last, old_rows == 1), b = behind_head(last, rows == 1);
        const auto end = std::mismatch(a.rbegin(), a.rend(), b.rbegin(), b.rend());
        ends.tail = static_cast<size_t>(end.first - a.rbegin());
        return ends;
    }

    // Rows [from, to) as they are, without the bytes that the first one and the last one share with old rows.
    void pack_lines(size_t from, size_t to, size_t first, size_t end, CommonEnds ends) {
        if (from == to) return;
        pack_kind(edits_, Piece::Lines);
        kpe_pack(edits_, uint64_t{to - from});
        for (size_t row = from; row < to; ++row) {
            std::string_view line = now_.view(row);
            if (row + 1 == end) line.remove_suffix(ends.tail);
            if (row == first) line.remove_prefix(ends.head);
            kpe_pack(edits_, line);
        }
    }

    struct Copied {
        Piece piece;
        size_t source, row, count;
    };
    void pack_copied(const Copied& copied) {
        pack_kind(edits_, copied.piece);
        if (copied.piece == Piece::Source) {
            kpe_pack(edits_, uint64_t{copied.source});
            if (std::find(used_.begin(), used_.end(), copied.source) == used_.end()) used_.push_back(copied.source);
        }
        kpe_pack(edits_, uint64_t{copied.row});
        kpe_pack(edits_, uint64_t{copied.count});
    }

    // The rows from row on that can be found elsewhere, as far as they are among those that changed.
    std::optional<Copied> copied_rows(size_t row, std::string_view line) {
        if (const auto rows = sources_.find(line)) {
            const LineRun run = now_.run_from(row);
            return Copied{Piece::Source, rows->source, rows->row, std::min({rows->count, run.rows, last_ - row})};
        }
        if (now_.size() < MANY_ROWS || old_.size() < MANY_ROWS) return std::nullopt;
        if (old_runs_.empty()) find_old_runs();
        const auto at = old_runs_.find(line.data());
        if (at == old_runs_.end()) return std::nullopt;
        const LineRun was = old_.run_from(at->second), is = now_.run_from(row);
        return Copied{Piece::Old, 0, at->second, std::min({was.rows, is.rows, last_ - row})};
    }

    // Where text of some size moves, it moves in whole runs but for their ends. Only so many runs are looked at that
    // this is no dearer than to pack the text that came: a text that was typed may have a million.
    static constexpr size_t MANY_ROWS = 4096, LARGE_RUN = size_t{4} << 10, BYTES_A_RUN = 16;
    void find_old_runs() {
        old_runs_.emplace(nullptr, 0);
        size_t most = 0;
        for (const LineRun& run : now_.runs(first_, last_)) most += run.bytes.size() / BYTES_A_RUN;
        if (most == 0) return;
        for (const LineRun& run : old_.runs()) {
            if (run.bytes.size() >= LARGE_RUN || run.rows > 1) old_runs_.emplace(run.bytes.data(), run.first_row);
            if (--most == 0) return;
        }
    }

    const LineStore &old_, &now_;
    const SourceTexts& sources_;
    std::vector<size_t>& used_;
    std::string edits_;
    size_t first_ = 0, last_ = 0;  // the first row that changed, the one behind the last
    size_t done_ = 0;              // rows of now_ that are behind the last edit
    bool any_ = false;
    size_t checked_row_ = 0, checked_column_ = 0;
    PlaceFinder places_;
    std::unordered_map<const char*, size_t> old_runs_;  // the first row of each large run
};

// --- Applying ---

class Applier {
public:
    Applier(const LineStore& old, std::span<const LineStore* const> sources)
        : old_(old), text_(old), sources_(sources) {}

    bool apply(std::string_view change) {
        if (change.size() < CHECK_SIZE) return false;
        uint32_t check = 0;
        std::memcpy(&check, change.data(), CHECK_SIZE);
        Unpacker from(change.substr(CHECK_SIZE));
        const uint64_t rows = from.number();
        RowRewriter rewriter(text_);
        while (from.good() && !from.at_end()) {
            const uint64_t kind = from.number(), gap = from.number();
            if (gap > text_.size() - done_) return false;
            const size_t row = done_ + gap;
            if (!any_) checked_row_ = row;
            bool good = false;
            if (kind == static_cast<uint8_t>(Edit::Bytes)) {
                good = change_bytes(from, row, rewriter);
            } else if (kind == static_cast<uint8_t>(Edit::Rows)) {
                rewriter.finish();
                good = change_rows(from, row);
            }
            if (!good) return false;
            any_ = true;
        }
        if (!from.good()) return false;
        rewriter.finish();
        return text_.size() == rows && check_of(text_, checked_row_, checked_column_) == check;
    }
    const LineStore& text() const { return text_; }

private:
    bool change_bytes(Unpacker& from, size_t row, RowRewriter& rewriter) {
        if (row >= text_.size()) return false;
        std::string_view left = text_.view(row);
        std::string line;
        for (uint64_t places = from.number(); places > 0; --places) {
            const uint64_t stays = from.number(), goes = from.number();
            if (!from.good() || stays > left.size() || goes > left.size() - stays) return false;
            line += left.substr(0, stays);
            left.remove_prefix(stays + goes);
            line += from.text();
            if (!any_) checked_column_ = line.size();
            any_ = true;
        }
        line += left;
        rewriter.put(row, line);
        done_ = row + 1;
        return from.good();
    }

    bool change_rows(Unpacker& from, size_t row) {
        const uint64_t old_rows = from.number(), head = from.number(), tail = from.number();
        if (!from.good() || old_rows > text_.size() - row) return false;
        if (!any_) checked_column_ = head;
        std::string front, back;
        if (old_rows > 0) {
            const std::string_view first = text_.view(row), last = text_.view(row + old_rows - 1);
            if (head > first.size() || tail > last.size()) return false;
            front = first.substr(0, head);
            back = last.substr(last.size() - tail);
        } else if (head > 0 || tail > 0) {
            return false;
        }
        LineStore rows;
        if (!read_pieces(from, rows)) return false;
        if (!front.empty() || !back.empty()) {
            if (rows.empty()) return false;
            rows.set(0, front + std::string(rows.view(0)));
            rows.set(rows.size() - 1, std::string(rows.view(rows.size() - 1)) + back);
        }
        text_.erase(row, row + old_rows);
        text_.insert(row, rows);
        done_ = row + rows.size();
        return true;
    }

    bool read_pieces(Unpacker& from, LineStore& rows) {
        for (;;) {
            const uint64_t kind = from.number();
            if (!from.good() || rows.size() > MOST_ROWS) return false;
            switch (static_cast<Piece>(kind)) {
                case Piece::End:
                    return kind == 0;
                case Piece::Lines: {
                    const uint64_t count = from.number();
                    if (count > from.left().size()) return false;
                    std::vector<std::string> lines;
                    for (uint64_t i = 0; i < count && from.good(); ++i) lines.emplace_back(from.text());
                    rows.insert(rows.size(), lines);
                    break;
                }
                case Piece::Source: {
                    const uint64_t number = from.number();
                    if (number >= sources_.size() || !sources_[number]) return false;
                    if (!copy_rows(from, *sources_[number], rows)) return false;
                    break;
                }
                case Piece::Old:
                    if (!copy_rows(from, old_, rows)) return false;
                    break;
                default:
                    return false;
            }
        }
    }

    static bool copy_rows(Unpacker& from, const LineStore& source, LineStore& rows) {
        const uint64_t first = from.number(), count = from.number();
        if (!from.good() || first > source.size() || count > source.size() - first) return false;
        rows.insert(rows.size(), source.slice(first, first + count));
        return true;
    }

    const LineStore old_;
    LineStore text_;
    const std::span<const LineStore* const> sources_;
    size_t done_ = 0;
    bool any_ = false;
    size_t checked_row_ = 0, checked_column_ = 0;
};

}  // namespace

void SourceTexts::add(size_t number, const LineStore& text) { texts_.push_back({number, text}); }

void SourceTexts::clear() {
    texts_.clear();
    runs_.clear();
    texts_in_runs_ = 0;
}

// Of a text in which every other row was edited the short runs are left out: to list them would take more memory than
// the text.
void SourceTexts::find_runs() const {
    constexpr size_t MANY_RUNS = 10000, SHORT_RUN = 64;  // rows
    for (; texts_in_runs_ < texts_.size(); ++texts_in_runs_)
        for (const LineRun& run : texts_[texts_in_runs_].lines.runs()) {
            if (!run.terminated || (runs_.size() > MANY_RUNS && run.rows < SHORT_RUN)) continue;
            const char* const begin = run.bytes.data();
            runs_.push_back({begin, begin + run.bytes.size(), texts_in_runs_, run.first_row, run.rows});
        }
    std::sort(runs_.begin(), runs_.end(), [](const Run& a, const Run& b) { return a.begin < b.begin; });
}

std::optional<SourceTexts::Rows> SourceTexts::find(std::string_view line) const {
    if (texts_in_runs_ < texts_.size()) find_runs();
    const auto behind = std::upper_bound(runs_.begin(), runs_.end(), line.data(),
                                         [](const char* at, const Run& run) { return at < run.begin; });
    if (behind == runs_.begin() || line.data() >= (behind - 1)->end) return std::nullopt;
    const Run& run = *(behind - 1);
    const Text& text = texts_[run.text];
    const LineRun rows{run.row, run.rows, {run.begin, static_cast<size_t>(run.end - run.begin)}, true};
    const size_t row = text.lines.row_at(rows, static_cast<size_t>(line.data() - run.begin));
    if (text.lines.view(row) != line) return std::nullopt;
    return Rows{text.number, row, run.row + run.rows - row};
}

std::string kpe_pack_change(const LineStore& old, const LineStore& now, const SourceTexts& sources,
                            std::vector<size_t>& used) {
    used.clear();
    return Packer(old, now, sources, used).pack();
}

std::vector<AddedText> kpe_added_text(std::string_view change) {
    std::vector<AddedText> added;
    Unpacker from(change.substr(std::min(change.size(), CHECK_SIZE)));
    size_t row = 0;
    from.number();
    while (from.good() && !from.at_end()) {
        const auto kind = static_cast<Edit>(from.number());
        row += from.number();
        if (kind == Edit::Bytes) {
            for (uint64_t places = from.number(); places > 0 && from.good(); --places) {
                from.number();
                from.number();
                added.push_back({row, std::string(from.text())});
            }
            ++row;
            continue;
        }
        for (int numbers = 0; numbers < 3; ++numbers) from.number();
        for (auto piece = static_cast<Piece>(from.number()); piece != Piece::End && from.good();
             piece = static_cast<Piece>(from.number())) {
            if (piece == Piece::Lines) {
                for (uint64_t count = from.number(); count > 0 && from.good(); --count)
                    added.push_back({row++, std::string(from.text())});
                continue;
            }
            if (piece == Piece::Source) from.number();
            from.number();
            row += from.number();
        }
    }
    return added;
}

bool kpe_apply_change(LineStore& text, std::string_view change, std::span<const LineStore* const> sources) {
    Applier applier(text, sources);
    if (!applier.apply(change)) return false;
    text = applier.text();
    return true;
}
