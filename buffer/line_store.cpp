#include "buffer/line_store.h"

#include <algorithm>
#include <cstring>

#include "buffer/line_breaks.h"
#include "buffer/line_tree.h"

namespace {

// Rows that are inserted as single lines; more become chunks of their own.
constexpr size_t FEW_ROWS = 64;
constexpr size_t FEW_SHARES = 8;
constexpr size_t ROWS_AROUND = LineChunk::TINY_ROWS;  // see cut_around

// A clone in place of what has other owners.
template <typename T>
T& own(std::shared_ptr<T>& part) {
    if (part.use_count() > 1) part = std::make_shared<T>(*part);
    return *part;
}

}  // namespace

// A row of a chunk that nobody else owns, as is the way down to it.
struct LineStore::Spot {
    LineTree& tree;
    LineTree::Place at;
    LineChunk& chunk;

    // The chunk got or lost rows; before is how many it had.
    void recount(size_t before) const {
        const size_t delta = chunk.rows() - before;
        tree.grow(at.branch, delta);
        LineBranch& branch = *tree.entries[at.branch].part;
        branch.grow(at.leaf, delta);
        branch.entries[at.leaf].part->grow(at.chunk, delta);
    }
};

// --- Making ---

LineStore::LineStore() = default;

LineStore::LineStore(const std::vector<std::string>& lines) {
    size_t bytes = 0;
    for (const std::string& line : lines) bytes += line.size() + 1;
    const auto block = std::make_shared<Block>(bytes);
    LineTreeBuilder out;
    SliceCutter cutter(&out);
    cutter.start_at(block, block->data());
    for (const std::string& line : lines) {
        block->append(line);
        block->append("\n");
        cutter.add(line.size());
    }
    cutter.finish();
    tree_ = out.finish();
}

LineStore LineStore::from_block(const std::shared_ptr<Block>& block, Returns returns) { return cut(block, returns); }

LineStore LineStore::from_text(std::string_view text, Returns returns) {
    const auto block = std::make_shared<Block>(text.size() + 1);
    block->append(text);
    return cut(block, returns);
}

LineStore LineStore::cut(const std::shared_ptr<Block>& block, Returns returns) {
    char *begin = block->data(), *end = begin + block->size();
    if (begin != end && end[-1] != '\n') *end++ = '\n';
    LineTreeBuilder tree;
    SliceCutter cutter(&tree);
    cutter.start_at(block, begin);
    const LineCutPlace behind =
        kpe_cut_lines(begin, end, {begin, begin}, returns == Returns::Drop, [&](size_t length) { cutter.add(length); });
    cutter.finish();
    block->set_size(static_cast<size_t>(behind.out - begin));
    return LineStore(tree.finish());
}

// --- Reading ---

size_t LineStore::size() const { return tree_ ? tree_->rows() : 0; }

std::string_view LineStore::view(size_t row) const {
    const LineTree::Place at = tree_->locate(row);
    return tree_->chunk(at).view(at.row);
}

size_t LineStore::length(size_t row) const {
    const LineTree::Place at = tree_->locate(row);
    return tree_->chunk(at).length(at.row);
}

void LineStore::views(size_t first, std::span<std::string_view> rows) const {
    if (rows.empty()) return;
    LineTree::Place at = tree_->locate(first);
    for (;;) {
        const LineChunk& chunk = tree_->chunk(at);
        const size_t count = std::min(rows.size(), chunk.rows() - at.row);
        chunk.views(at.row, rows.first(count));
        rows = rows.subspan(count);
        if (rows.empty()) return;
        tree_->step_forward(at);
    }
}

const std::string& LineStore::at(size_t row) const {
    const LineTree::Place at = tree_->locate(row);
    return tree_->chunk(at).string(at.row);
}

void LineStore::append_text(std::string& text, size_t first, size_t last, size_t room_behind) const {
    size_t bytes = text.size() + room_behind;
    for (const LineRun& run : runs(first, last)) bytes += run.bytes.size() + (run.terminated ? 0 : 1);
    text.reserve(bytes);
    for (const LineRun& run : runs(first, last)) {
        text.append(run.bytes);
        if (!run.terminated) text.push_back('\n');
    }
}

LineStore LineStore::slice(size_t first, size_t last) const {
    LineTreeBuilder out;
    if (tree_) out.add_rows(*tree_, first, last);
    return LineStore(out.finish());
}

LineRun LineStore::run_from(size_t row, size_t limit) const {
    LineTree::Place at = tree_->locate(row);
    LineRun run = tree_->chunk(at).run_from(at.row, limit);
    run.first_row = row;
    size_t next_row = at.row + run.rows;
    while (run.terminated && next_row == tree_->chunk(at).rows() && tree_->step_forward(at)) {
        if (run.bytes.size() >= limit) break;
        const LineRun more = tree_->chunk(at).run_from(0, limit - run.bytes.size());
        const bool adjoins = more.terminated && more.bytes.data() == run.bytes.data() + run.bytes.size();
        if (!adjoins || run.bytes.size() + more.bytes.size() > limit) break;
        run.rows += more.rows;
        run.bytes = {run.bytes.data(), run.bytes.size() + more.bytes.size()};
        next_row = more.rows;
    }
    return run;
}

LineRun LineStore::run_to(size_t row, size_t limit) const {
    LineTree::Place at = tree_->locate(row);
    LineRun run = tree_->chunk(at).run_to(at.row, limit);
    size_t rows_before = run.first_row;  // in the same chunk
    run.first_row = row + 1 - run.rows;
    while (run.terminated && rows_before == 0 && tree_->step_back(at)) {
        if (run.bytes.size() >= limit) break;
        const LineRun more = tree_->chunk(at).run_to(at.row, limit - run.bytes.size());
        const bool adjoins = more.terminated && more.bytes.data() + more.bytes.size() == run.bytes.data();
        if (!adjoins || run.bytes.size() + more.bytes.size() > limit) break;
        run.rows += more.rows;
        run.first_row -= more.rows;
        run.bytes = {more.bytes.data(), run.bytes.size() + more.bytes.size()};
        rows_before = more.first_row;
    }
    return run;
}

// By the places of the lines and not by line breaks, as a line may hold some.
size_t LineStore::row_at(const LineRun& run, size_t offset) const {
    size_t low = run.first_row, high = run.first_row + run.rows - 1;
    while (low < high) {
        const size_t middle = (low + high + 1) / 2;
        if (static_cast<size_t>(view(middle).data() - run.bytes.data()) <= offset)
            low = middle;
        else
            high = middle - 1;
    }
    return low;
}

// Each share is one leaf, or what the rows have of it. So few that threads would cost more than they save are one
// share.
std::vector<size_t> LineStore::shares(size_t first, size_t last) const {
    std::vector<size_t> rows{first};
    last = std::min(last, size());
    if (first >= last) return rows;
    const LineTree::Place at = tree_->locate(first);
    for (size_t i = at.branch; i < tree_->entries.size(); ++i) {
        const LineBranch& branch = *tree_->entries[i].part;
        for (const auto& leaf : branch.entries) {
            const size_t row = tree_->start(i) + leaf.end;
            if (row >= last) break;
            if (row > first) rows.push_back(row);
        }
    }
    if (rows.size() < FEW_SHARES) rows.resize(1);
    rows.push_back(last);
    return rows;
}

// --- Changing ---

// Clones what is shared on the way down; row may be size() and is then behind the last chunk's last row.
LineStore::Spot LineStore::own_chunk(size_t row) {
    const bool behind = row == size();
    LineTree::Place at = tree_->locate(behind ? row - 1 : row);
    if (behind) ++at.row;
    LineBranch& branch = own(own(tree_).entries[at.branch].part);
    LineLeaf& leaf = own(branch.entries[at.leaf].part);
    return {*tree_, at, own(leaf.entries[at.chunk].part)};
}

std::string& LineStore::edit(size_t row, size_t room) {
    const Spot spot = own_chunk(row);
    return spot.chunk.edit(spot.at.row, room);
}

void LineStore::set(size_t row, std::string_view text) {
    const Spot spot = own_chunk(row);
    spot.chunk.set(spot.at.row, text);
}

// Rows [first, last) give way to those of middle (may be null).
void LineStore::splice(size_t first, size_t last, const LineTree* middle) {
    LineTreeBuilder out;
    if (tree_) out.add_rows(*tree_, 0, first);
    if (middle) out.add_rows(*middle, 0, middle->rows());
    if (tree_) out.add_rows(*tree_, last, size());
    tree_ = out.finish();
}

// Where rows come or go a chunk has to hold a record for each of its lines, which makes it dear to clone: only a few
// lines around the row are put into such a chunk, what lies before and behind them stays a slice.
void LineStore::cut_around(size_t row) {
    const LineTree::Place at = tree_->locate(row);
    const LineChunk& whole = tree_->chunk(at);
    const size_t rows = whole.rows();
    if (!whole.is_slice() || rows < 2 * ROWS_AROUND + LineChunk::TINY_ROWS) return;
    size_t first = at.row - std::min(at.row, ROWS_AROUND), last = std::min(rows, at.row + ROWS_AROUND);
    if (first < LineChunk::TINY_ROWS) first = 0;
    if (rows - last < LineChunk::TINY_ROWS) last = rows;
    std::vector<std::shared_ptr<LineChunk>> parts;
    for (const auto& [from, to] : {std::pair(size_t{0}, first), {first, last}, {last, rows}})
        if (from < to) parts.push_back(whole.part(from, to));

    const Spot spot = own_chunk(row);
    auto& leaf = tree_->entries[spot.at.branch].part->entries[spot.at.leaf].part;
    const auto anew = std::make_shared<LineLeaf>();
    for (size_t i = 0; i < leaf->entries.size(); ++i) {
        if (i != spot.at.chunk)
            anew->add(leaf->entries[i].part);
        else
            for (const auto& part : parts) anew->add(part);
    }
    leaf = anew;
}

// The row's chunk in two, if it were too long with more rows.
void LineStore::cut_long(size_t row, size_t more) {
    const LineTree::Place at = tree_->locate(row);
    const size_t rows = tree_->chunk(at).rows(), middle = row - at.row + rows / 2;
    if (rows + more <= 2 * LineChunk::MAX_ROWS) return;
    LineTreeBuilder out;
    out.add_rows(*tree_, 0, middle);
    out.add_rows(*tree_, middle, size());
    tree_ = out.finish();
}

// Into the chunk that is there. put_into(chunk, row) does it, wholly or not at all.
template <typename Rows>
bool LineStore::insert_few(size_t row, size_t count, const Rows& put_into) {
    if (count > FEW_ROWS || empty()) return false;
    cut_around(std::min(row, size() - 1));
    cut_long(std::min(row, size() - 1), count);
    const Spot spot = own_chunk(row);
    const size_t before = spot.chunk.rows();
    put_into(spot.chunk, spot.at.row);
    spot.recount(before);
    return true;
}

void LineStore::insert(size_t row, const std::vector<std::string>& lines) {
    if (lines.empty()) return;
    const auto put = [&](LineChunk& chunk, size_t at) { chunk.insert(at, lines); };
    if (!insert_few(row, lines.size(), put)) splice(row, row, LineStore(lines).tree_.get());
}

void LineStore::insert(size_t row, const LineStore& other) {
    if (other.empty()) return;
    const LineStore added = other;  // other may be this store
    if (empty()) {
        tree_ = added.tree_;
        return;
    }
    const auto put = [&](LineChunk& chunk, size_t at) {
        LineTree::Place from;
        const LineChunk& first = added.tree_->chunk(from);
        if (!added.tree_->step_forward(from)) return chunk.insert(at, first);
        const auto all = std::make_shared<LineChunk>(first);
        do all->insert(all->rows(), added.tree_->chunk(from));
        while (added.tree_->step_forward(from));
        chunk.insert(at, *all);
    };
    if (!insert_few(row, added.size(), put)) splice(row, row, added.tree_.get());
}

void LineStore::erase(size_t first, size_t last) {
    last = std::min(last, size());
    if (first >= last) return;
    if (last - first < ROWS_AROUND) cut_around(first);
    const LineTree::Place at = tree_->locate(first);
    const size_t rows = tree_->chunk(at).rows();
    // What would leave an empty or a tiny chunk is put together anew, which joins it with its neighbours.
    if (at.row + (last - first) > rows || rows - (last - first) < LineChunk::TINY_ROWS)
        return splice(first, last, nullptr);
    const Spot spot = own_chunk(first);
    spot.chunk.erase(at.row, at.row + (last - first));
    spot.recount(rows);
}
