#include <algorithm>
#include <cstring>
#include <functional>
#include <optional>
#include <vector>

#include "buffer/byte_search.h"
#include "buffer/line_rebuild.h"
#include "buffer/line_store.h"

namespace {

bool lies_in(const char* place, std::string_view line) {
    const std::less<> before;  // in whatever block
    return !before(place, line.data()) && before(place, line.data() + line.size());
}

// Replaces chunk by chunk: all places are found first, over whole runs of lines, so that the new text's size is
// known and each of its bytes is written once.
class Replacement {
public:
    Replacement(std::shared_ptr<LineTree> tree, const ByteSearch& what, std::string_view by, Patience& patience)
        : tree_(std::move(tree)), what_(what), by_(by), patience_(patience) {}

    LineStore::Replaced done;

    // Rows [begin, end) of a chunk whose first row is start.
    void replace_in(const LineChunk& chunk, size_t start, size_t begin, size_t end) {
        find_places(chunk, begin, end);
        if (places_.empty()) return;
        done.count += places_.size();
        note_last(chunk, start, end);
        const auto differs = [&](const char* place) { return std::string_view(place, what_.size()) != by_; };
        if (std::none_of(places_.begin(), places_.end(), differs)) return;
        done.changed = true;
        if (!anew_) anew_.emplace(tree_);
        anew_->copy_to(start + begin);
        // Where few rows change, the others stay where they are.
        if (places_.size() * 4 >= end - begin)
            renew(chunk, begin, end);
        else
            renew_some(chunk.part(begin, end));
        anew_->copied = start + end;
    }
    std::shared_ptr<LineTree> finish() { return anew_ ? anew_->finish() : tree_; }

private:
    void find_places(const LineChunk& chunk, size_t begin, size_t end) {
        places_.clear();
        for (size_t row = begin; row < end && !patience_.over();) {
            const LineChunk::Run run = chunk.run_from(row, SIZE_MAX);
            row += run.rows;
            std::string_view bytes = run.bytes;
            if (row > end) {
                const std::string_view last = chunk.view(end - 1);
                bytes = {bytes.data(), static_cast<size_t>(last.data() + last.size() - bytes.data())};
            }
            what_.find_all(bytes, places_, patience_);
        }
    }

    // How many of the places from place on lie in line. Lines with the same bytes may follow one another.
    size_t places_in(std::string_view line, size_t place) const {
        const size_t first = place;
        while (place < places_.size() && lies_in(places_[place], line)) {
            line = {places_[place] + what_.size(), line.data() + line.size()};
            ++place;
        }
        return place - first;
    }

    void note_last(const LineChunk& chunk, size_t start, size_t end) {
        const char* const last = places_.back();
        size_t row = end - 1;
        while (!lies_in(last, chunk.view(row))) --row;
        const std::string_view line = chunk.view(row);
        size_t before = 0;  // further places in that row
        for (auto place = places_.rbegin(); ++place != places_.rend(); ++before)
            if (!lies_in(*place, line) || !std::less<>()(*place, place[-1])) break;
        done.last_row = start + row;
        done.last_col = static_cast<size_t>(last - line.data()) - before * what_.size() + before * by_.size();
    }

    // Puts the line with count replacements, the first one at places_[place], and its "\n" into the arena, which has
    // the room: where it lies then.
    std::string_view add_line(std::string_view line, size_t place, size_t count) {
        const size_t size = line.size() - count * what_.size() + count * by_.size();
        char* const start = anew_->arena.end();
        char* to = start;
        const char* from = line.data();
        const auto add = [&](const char* bytes, size_t n) {
            std::memcpy(to, bytes, n);
            to += n;
        };
        for (; count > 0; --count, ++place) {
            add(from, static_cast<size_t>(places_[place] - from));
            add(by_.data(), by_.size());
            from = places_[place] + what_.size();
        }
        add(from, static_cast<size_t>(line.data() + line.size() - from));
        *to = '\n';
        Block& block = *anew_->arena.block();
        block.set_size(block.size() + size + 1);
        return {start, size};
    }

    void renew(const LineChunk& chunk, size_t begin, size_t end) {
        size_t bytes = places_.size() * by_.size();
        for (size_t row = begin; row < end; ++row) bytes += chunk.view(row).size() + 1;
        anew_->arena.make_room(bytes - places_.size() * what_.size());
        anew_->cutter.start_at(anew_->arena.block(), anew_->arena.end());
        for (size_t row = begin, place = 0; row < end; ++row) {
            const std::string_view line = chunk.view(row);
            const size_t count = places_in(line, place);
            anew_->cutter.add(add_line(line, place, count).size());
            place += count;
        }
    }

    void renew_some(const std::shared_ptr<LineChunk>& rows) {
        anew_->cutter.finish();
        for (size_t row = 0, place = 0; place < places_.size(); ++row) {
            const std::string_view line = rows->view(row);
            const size_t count = places_in(line, place);
            if (count == 0) continue;
            anew_->arena.make_room(line.size() + 1 + count * by_.size());
            rows->set_slice(row, add_line(line, place, count), anew_->arena.block());
            place += count;
        }
        anew_->out.add_chunk(rows);
    }

    const std::shared_ptr<LineTree> tree_;
    const ByteSearch& what_;
    const std::string_view by_;
    Patience& patience_;
    std::optional<LineRebuild> anew_;  // from the first change on
    std::vector<const char*> places_;  // in the rows at hand, in their order
};

}  // namespace

LineStore::Replaced LineStore::replace(size_t first, size_t last, const ByteSearch& what, std::string_view by,
                                       Patience& patience) {
    last = std::min(last, size() - 1);
    if (empty() || first > last) return {};
    Replacement all(tree_, what, by, patience);
    LineTree::Place at = tree_->locate(first);
    size_t start = first - at.row;
    do {
        const LineChunk& chunk = tree_->chunk(at);
        const size_t next = start + chunk.rows();
        all.replace_in(chunk, start, std::max(first, start) - start, std::min(last + 1, next) - start);
        start = next;
    } while (start <= last && !patience.over() && tree_->step_forward(at));
    tree_ = all.finish();
    return all.done;
}
