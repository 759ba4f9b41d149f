#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "buffer/edited_line.h"
#include "buffer/line_run.h"
#include "system/block.h"

// A chunk: some hundred neighbouring lines of a LineStore. Copies of the store share chunks; nothing else uses them.
//
// A chunk begins as a slice of a block: it knows where each line starts there, and holds a few lines that were edited.
// When more lines are edited, or lines come or go, it changes its form and holds a record for each line. The record of
// an untouched line still points into the block. In both forms a line that lies in a block is followed there by one
// "\n".
//
// Rows count from the first row of the chunk. A chunk with more than one owner must not be changed. If memory runs out
// during a change, it throws std::bad_alloc, and the chunk is as it was.
class LineChunk {
public:
    static constexpr size_t MAX_ROWS = 256;     // of a slice; an edited chunk may have twice as many
    static constexpr size_t MAX_BYTES = 65535;  // of a slice of several lines; a single line may be longer
    static constexpr size_t TINY_ROWS = 32;     // a chunk with fewer is joined with a neighbour that has room

    static constexpr size_t MANY_BLOCKS = 32;  // a chunk that points into more drops those it needs no longer

    using Blocks = std::vector<std::shared_ptr<const Block>>;

    static constexpr size_t FEW_EDITS = 16;  // at most in a slice, so that cloning it costs next to nothing

    struct Edit {
        size_t row;
        std::shared_ptr<EditedLine> own;
    };

    struct Slice {
        std::shared_ptr<const Block> block;
        const char* base = nullptr;
        size_t stride = 0;  // bytes of each line with its "\n" if all have the same length, else 0
        std::shared_ptr<const uint16_t[]> starts;  // if stride is 0: offsets from base, one more than there are rows
        std::vector<Edit> edits = {};              // by row: the lines whose text is not that of the block

        size_t start(size_t row) const { return stride != 0 ? row * stride : starts[static_cast<ptrdiff_t>(row)]; }
    };

    struct Line {
        std::string_view slice;           // where the line lies in a block; data() is null once it was edited
        std::shared_ptr<EditedLine> own;  // the edited text, or a copy of slice that string() has made

        bool edited() const { return slice.data() == nullptr; }
        std::string_view text() const { return edited() ? own->view() : slice; }
    };

    LineChunk(Slice slice, size_t rows) : rows_(rows), body_(std::move(slice)) {}

    size_t rows() const { return rows_; }
    bool is_slice() const { return std::holds_alternative<Slice>(body_); }
    std::string_view view(size_t row) const;
    // Fills rows with the views of as many rows from first on; all must exist. Faster than calling view() for each row.
    void views(size_t first, std::span<std::string_view> rows) const;
    size_t length(size_t row) const;  // of view(row); does not make the line whole
    // The line as a string that the chunk keeps. May be called for a shared chunk, because the text stays the same.
    const std::string& string(size_t row);

    // Lines of so many bytes and more are kept as differences in older undo states.
    static constexpr size_t LONG_LINE = size_t{16} << 10;
    // The rows of such lines, in ascending order. Lines that share a block with other lines of the file are left out.
    std::vector<size_t> long_rows() const;
    // The line as an object of its own, so that differences can be made of it and to it. May be called for a shared
    // chunk, because the text stays the same and where it is.
    std::shared_ptr<EditedLine> shared_line(size_t row);
    // The same if the line is such an object already, else null.
    std::shared_ptr<EditedLine> edited_line(size_t row) const;

    // The run that starts at row (run_from) or ends with row (run_to): as many lines as lie together and fit into limit
    // bytes, but at least one.
    LineRun run_from(size_t row, size_t limit = SIZE_MAX) const;
    LineRun run_to(size_t row, size_t limit) const;
    LineRuns<LineChunk> runs() const { return {*this, 0, rows_}; }

    // How many rows from row on (count_same), and how many in front of row (count_same_back), lie at the same place in
    // memory in both chunks. Both chunks have these rows. Fewer are counted if that takes a look at each line's bytes.
    size_t count_same(const LineChunk& other, size_t row) const;
    size_t count_same_back(size_t row, const LineChunk& other, size_t other_row) const;

    std::string& edit(size_t row,
                      size_t room);  // for changing the line in place; room is by how many bytes it will grow
    void set(size_t row, std::string_view text);
    // Sets the line to text, which lies in block with a "\n" behind it.
    void set_slice(size_t row, std::string_view text, const std::shared_ptr<const Block>& block);
    void insert(size_t row, const std::vector<std::string>& lines);
    void insert(size_t row, const LineChunk& other);
    void erase(size_t first, size_t last);                             // [first, last)
    std::shared_ptr<LineChunk> part(size_t first, size_t last) const;  // shares the text

private:
    struct Mixed {
        std::vector<Line> lines;
        Blocks blocks;  // the blocks that lines point into, and some that no line needs any more
        size_t many = MANY_BLOCKS;
    };

    explicit LineChunk(Mixed mixed) : rows_(mixed.lines.size()), body_(std::move(mixed)) {}
    static Mixed mixed_part(const LineChunk& from, size_t first, size_t last);
    static void add_block(Mixed& mixed, const std::shared_ptr<const Block>& block);
    static void drop_unused_blocks(Mixed& mixed);
    static void tidy(Mixed& mixed) noexcept;
    Mixed& mixed();
    const std::shared_ptr<EditedLine>* edited_text(size_t row) const;  // null if the row is untouched
    void put(size_t row, std::shared_ptr<EditedLine> own);
    bool adjoin(size_t row) const;
    bool same_slice(const LineChunk& other) const;

    size_t rows_ = 0;
    std::variant<Slice, Mixed> body_;
};
