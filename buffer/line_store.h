#pragma once

#include <cstddef>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "system/block.h"

class ByteSearch;
class EditedLine;
class Patience;
struct LineTree;

// The lines of one buffer, in chunks that copies share. A copy costs one pointer; the first
// change after it clones the way down to one chunk of some hundred lines, never the text: a
// chunk refers to bytes of immutable blocks, or to single lines of its own once they were edited.
//
// Rows are zero-based. A store may be empty. A line may hold any byte, a line break included. A change that memory does
// not suffice for throws std::bad_alloc, and leaves the store as it was.
class LineStore {
public:
    LineStore();
    // One row for each string.
    explicit LineStore(const std::vector<std::string>& lines);
    // The bytes of a block from begin to end as rows that each end in "\n" (the last may lack it, and
    // then the byte behind it must be writable: it becomes one). One carriage return before each
    // line end is dropped. No bytes: no rows. The block becomes immutable by this.
    static LineStore from_block(const std::shared_ptr<Block>& block);
    // text cut at each "\n" as above; a last "\n" starts no further row.
    enum class Returns { Drop, Keep };  // the carriage return before a line end
    static LineStore from_text(std::string_view text, Returns returns = Returns::Drop);

    size_t size() const;
    bool empty() const { return size() == 0; }

    // The row's bytes; row < size(). Valid until the row or a row of its chunk changes, and not
    // longer than this store or a copy made meanwhile lives, nor after a thin(). Making at() strings does not end it.
    std::string_view view(size_t row) const;
    size_t length(size_t row) const;  // of view(row); never throws
    // Rows [first, first + rows.size()), all below size(), as view() gives them: sooner than one after the other.
    void views(size_t first, std::span<std::string_view> rows) const;
    // The same as a string that lives in the store, for callers that need one; view() is cheaper.
    const std::string& at(size_t row) const;
    // For editing in place. The reference dies when the row changes otherwise or goes, not when other rows come or go,
    // and must not be kept while the store is copied: the copy would see the change. room is how many bytes the line
    // will grow by.
    std::string& edit(size_t row, size_t room = 0);
    // Replaces the row's text.
    void set(size_t row, std::string_view text);

    void insert(size_t row, const std::vector<std::string>& lines);  // row <= size()
    // Inserts all rows of other, sharing their bytes and whole chunks.
    void insert(size_t row, const LineStore& other);  // row <= size()
    void erase(size_t first, size_t last);            // [first, last), clamped
    // Rows [first, last), sharing bytes and whole chunks; clamped.
    LineStore slice(size_t first, size_t last) const;

    // Rows that lie one behind the other in memory, each followed by one "\n" that belongs to the
    // run; a single edited row is a run whose bytes lack that "\n" (terminated is false).
    struct Run {
        size_t first_row = 0, rows = 0;
        std::string_view bytes;
        bool terminated = true;
    };
    // The run that starts at row (row < size()), of at most about limit bytes, at least one row.
    Run run_from(size_t row, size_t limit = RUN_LIMIT) const;
    // The run that ends with row (row < size()), of at most about limit bytes, at least one row.
    Run run_to(size_t row, size_t limit = RUN_LIMIT) const;
    // The row of the run in which the byte at offset (below bytes.size()) lies.
    size_t row_at(const Run& run, size_t offset) const;
    static constexpr size_t RUN_LIMIT = size_t{4} << 20;

    // Replaces what in rows first to last (inclusive; last is lowered to the last row), from left to right in each;
    // what must not hold a line break. Rows without it are shared as they were. Once patience ended, the places
    // found until then are replaced.
    struct Replaced {
        size_t count = 0, last_row = 0, last_col = 0;  // of the last place, in the new text; if count is not 0
        bool changed = false;                          // some bytes became other ones
    };
    Replaced replace(size_t first, size_t last, const ByteSearch& what, std::string_view by, Patience& patience);

    // For a state that is kept beside a newer one of the same text: long lines of this store, and of all that share
    // them, become differences to the newer lines. Every line reads as before, though after that view() and all that
    // reads may throw std::bad_alloc. Views of these lines must not be in use. Without memory less is done.
    struct Thinned {
        size_t bytes = 0;          // kept for lines of HUGE_LINE and more that the newer store has in another form
        bool differences = false;  // there are some
    };
    Thinned thin(const LineStore& newer) const noexcept;
    static constexpr size_t HUGE_LINE = size_t{1} << 20;
    // Before this store goes, and only then: its differences to newer. Once it has gone, settle() makes those whole
    // that somebody else still has, so that they do not hold fast all the newer lines that will ever come.
    using Differences = std::vector<std::shared_ptr<EditedLine>>;
    void add_differences(const LineStore& newer, Differences& to) const noexcept;  // without memory not all
    static void settle(Differences& left) noexcept;

    // New texts for many rows, put in ascending order. Each touched chunk is rebuilt once, in blocks
    // of large size, so that changing every line costs little more than copying the bytes. Until
    // finish() the store must not be changed otherwise, and reads as before.
    class Rewriter {
    public:
        // finish() sets *changed (may be null) if a row gets other bytes than it had.
        explicit Rewriter(LineStore& store, bool* changed = nullptr);
        ~Rewriter();  // drops what finish() has not put into the store: only an exception comes before that
        Rewriter(const Rewriter&) = delete;
        Rewriter& operator=(const Rewriter&) = delete;
        // row above the last one put (others work, slowly); nothing from size() on.
        void put(size_t row, std::string_view text);
        void finish();

    private:
        struct State;
        std::unique_ptr<State> state_;
    };

private:
    explicit LineStore(std::shared_ptr<LineTree> tree) : tree_(std::move(tree)) {}
    static LineStore cut(const std::shared_ptr<Block>& block, Returns returns);
    struct Spot;
    Spot own_chunk(size_t row);
    void cut_around(size_t row);
    void cut_long(size_t row, size_t more);
    void splice(size_t first, size_t last, const LineTree* middle);
    template <typename Rows>
    bool insert_few(size_t row, size_t count, const Rows& put_into);

    std::shared_ptr<LineTree> tree_;  // null: no rows
};
