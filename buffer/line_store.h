#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "buffer/line_run.h"
#include "system/block.h"

class ByteSearch;
class EditedLine;
class Patience;
struct LineTree;

// The lines of one buffer. They lie in chunks of some hundred lines, which copies of the store share.
//
// To copy a store costs one pointer. The first change after that clones the way down to one chunk, but no text: a chunk
// points to bytes in blocks that never change, or to edited lines of its own.
//
// Rows are zero-based. A store may be empty. A line may hold any byte, even a line break. If memory runs out during a
// change, it throws std::bad_alloc, and the store is as it was.
class LineStore {
public:
    LineStore();
    // One row for each string.
    explicit LineStore(const std::vector<std::string>& lines);
    // The bytes of a block, cut into rows at each "\n". If the last row has none, the byte behind it must be writable:
    // it becomes a "\n". One carriage return in front of each line end is dropped, or kept as a byte of the row. An
    // empty block gives no rows. The block must not change any more.
    enum class Returns { Drop, Keep };  // what becomes of a carriage return in front of a line end
    static LineStore from_block(const std::shared_ptr<Block>& block, Returns returns = Returns::Drop);
    // A copy of text, cut into rows in the same way. A "\n" at the end starts no further row.
    static LineStore from_text(std::string_view text, Returns returns = Returns::Drop);

    size_t size() const;
    bool empty() const { return size() == 0; }

    // The bytes of the row; row < size(). The view is valid until a row of the same chunk changes, until a thin(), and
    // as long as this store or a copy made meanwhile lives. A call of at() leaves it valid.
    std::string_view view(size_t row) const;
    size_t length(size_t row) const;  // of view(row); never throws
    // Fills rows with the views of as many rows from first on; all must exist. Faster than calling view() for each row.
    void views(size_t first, std::span<std::string_view> rows) const;
    // The row as a string that the store keeps, for callers that need one. view() is cheaper.
    const std::string& at(size_t row) const;
    // The row for changing it in place; room is by how many bytes it will grow. The reference becomes invalid when the
    // row is removed or changed in another way; other rows may come and go. Do not hold it while the store is copied:
    // the copy would see the change.
    std::string& edit(size_t row, size_t room = 0);
    // Replaces the row's text.
    void set(size_t row, std::string_view text);

    void insert(size_t row, const std::vector<std::string>& lines);  // row <= size()
    // Inserts all rows of other, sharing their bytes and whole chunks.
    void insert(size_t row, const LineStore& other);  // row <= size()
    void erase(size_t first, size_t last);            // rows [first, last), as far as they exist
    // A store of rows [first, last), as far as they exist. Shares bytes and whole chunks.
    LineStore slice(size_t first, size_t last) const;

    // Adds rows [first, last), as far as they exist, to text, each with "\n". The room is taken at once, with so many
    // bytes behind them.
    void append_text(std::string& text, size_t first, size_t last, size_t room_behind = 0) const;

    // The runs that rows [first, last) lie in, as far as they exist. The store must not change meanwhile.
    LineRuns<LineStore> runs(size_t first = 0, size_t last = SIZE_MAX) const {
        return {*this, first, std::min(last, size())};
    }
    // The run that starts at row (row < size()), of at most about limit bytes, at least one row.
    LineRun run_from(size_t row, size_t limit = RUN_LIMIT) const;
    // The run that ends with row (row < size()), of at most about limit bytes, at least one row.
    LineRun run_to(size_t row, size_t limit = RUN_LIMIT) const;
    // The row that holds the byte at this offset in the run (offset < bytes.size()).
    size_t row_at(const LineRun& run, size_t offset) const;
    static constexpr size_t RUN_LIMIT = size_t{4} << 20;

    // Cuts rows [first, last), as far as they exist, into shares of about some megabytes each: the first row of each
    // share, and last. They follow from the rows alone, so that what threads find in them does too.
    std::vector<size_t> shares(size_t first, size_t last) const;

    // Replaces each place of what, which must not hold a line break, by the text by. Looks at rows first to last, both
    // inclusive, as far as they exist, from left to right in each. Rows that do not change stay shared. If patience
    // ends, only the places found until then are replaced.
    struct Hits {
        size_t count = 0, last_row = 0, last_col = 0;  // count of places; where the last one is in the new text
        bool changed = false;                          // whether any byte is another one now
    };
    Hits replace(size_t first, size_t last, const ByteSearch& what, std::string_view by, Patience& patience);

    // Saves memory for an undo state that is kept beside a newer state of the same text: long lines of this store, and
    // of all stores that share them, become differences to the newer lines. Every line reads as before, but afterwards
    // functions that read may throw std::bad_alloc. Views of these lines must not be in use. If memory runs out, fewer
    // lines become differences.
    struct Thinned {
        size_t bytes = 0;          // kept here for lines of HUGE_LINE and more that differ in the newer store
        bool differences = false;  // whether any line is a difference now
    };
    Thinned thin(const LineStore& newer) const noexcept;
    static constexpr size_t HUGE_LINE = size_t{1} << 20;
    // For a store that is about to be destroyed: adds its differences to newer to the list to. After the store is gone,
    // settle() makes those whole that another store still uses. Otherwise each would keep its newer line alive, and
    // that line the next newer one, without end.
    using Differences = std::vector<std::shared_ptr<EditedLine>>;
    void add_differences(const LineStore& newer, Differences& to) const noexcept;  // fewer if memory runs out
    static void settle(Differences& left) noexcept;

    // Where this store differs from an older one, of which it is a changed copy: rows [first, first + old_rows) of the
    // older store have become rows [first, first + rows). The rows in front and behind have the same bytes in both.
    // Parts that both share are not looked at. May throw std::bad_alloc.
    struct Difference {
        size_t first = 0, old_rows = 0, rows = 0;
        bool none() const { return old_rows == 0 && rows == 0; }
    };
    Difference difference_to(const LineStore& older) const;
    // Whether both are copies of which none was changed since.
    bool is_copy_of(const LineStore& other) const { return tree_ == other.tree_; }

private:
    friend class RowRewriter;  // gives new texts to many rows at once
    friend class RowPairs;     // compares rows
    friend class LineCutter;   // makes a store while its text is read
    explicit LineStore(std::shared_ptr<LineTree> tree) : tree_(std::move(tree)) {}
    Hits replace_in_part(size_t first, size_t last, const ByteSearch& what, std::string_view by, Patience& patience);
    static LineStore cut(const std::shared_ptr<Block>& block, Returns returns);
    struct Spot;
    Spot own_chunk(size_t row);
    void cut_around(size_t row);
    void cut_long(size_t row, size_t more);
    void splice(size_t first, size_t last, const LineTree* middle);
    template <typename Rows>
    bool insert_few(size_t row, size_t count, const Rows& put_into);

    std::shared_ptr<LineTree> tree_;  // null if there are no rows
};
