#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "buffer/edited_line.h"
#include "system/block.h"

// Some hundred lines of a LineStore, the piece that its copies share. Part of the store's inside.
//
// A chunk is a slice of a block, with the line starts and a few lines that were edited. Once there are
// many of these, or other rows than before, it holds a record for each line, which still points into the
// block where the line is untouched. Whichever it is, each line that lies in a block is followed there
// by one "\n" that ends it.
//
// Rows count from the chunk's first one. A chunk that has more than one owner must not be changed. A change that
// memory does not suffice for throws std::bad_alloc, and leaves the chunk as it was.
class LineChunk {
public:
    static constexpr size_t MAX_ROWS = 256;     // of a slice; up to twice as many once it was edited
    static constexpr size_t MAX_BYTES = 65535;  // of a slice of several lines; a single one may be longer
    static constexpr size_t TINY_ROWS = 32;     // fewer are joined with a neighbour where it has room

    static constexpr size_t MANY_BLOCKS = 32;  // of one chunk: from here on it is looked which are still needed

    using Blocks = std::vector<std::shared_ptr<const Block>>;

    static constexpr size_t FEW_EDITS = 16;  // of a slice; cloning one must cost next to nothing

    struct Edit {
        size_t row;
        std::shared_ptr<EditedLine> own;
    };

    struct Slice {
        std::shared_ptr<const Block> block;
        const char* base = nullptr;
        size_t stride = 0;                         // bytes of each line if they are all alike, else 0
        std::shared_ptr<const uint16_t[]> starts;  // without stride: offsets from base, one more than rows
        std::vector<Edit> edits = {};              // by row; these lines are no longer what the block says

        size_t start(size_t row) const { return stride != 0 ? row * stride : starts[static_cast<ptrdiff_t>(row)]; }
    };

    struct Line {
        std::string_view slice;           // in a block; data() is null once the line was edited
        std::shared_ptr<EditedLine> own;  // the edited text, or a copy of slice that somebody asked for

        bool edited() const { return slice.data() == nullptr; }
        std::string_view text() const { return edited() ? own->view() : slice; }
    };

    // Neighbouring lines that lie one behind the other in memory; edited lines stand alone.
    struct Run {
        size_t rows = 0;
        std::string_view bytes;  // the last "\n" included unless edited
        bool edited = false;
    };

    LineChunk(Slice slice, size_t rows) : rows_(rows), body_(std::move(slice)) {}

    size_t rows() const { return rows_; }
    bool is_slice() const { return std::holds_alternative<Slice>(body_); }
    std::string_view view(size_t row) const;
    size_t length(size_t row) const;  // of view(row), which it does not make whole
    // The line as a string kept here. The text stays as it is, so this may be done to a shared chunk.
    const std::string& string(size_t row);

    // A line from so many bytes on is kept as a difference where an older state has another text of it.
    static constexpr size_t LONG_LINE = size_t{16} << 10;
    // The rows of such lines, ascending. Those that share a block with other lines of the file are left out.
    std::vector<size_t> long_rows() const;
    // The line by itself, so that a difference can be made of it or to it. The text stays as it is and where it is, so
    // this may be done to a shared chunk.
    std::shared_ptr<EditedLine> shared_line(size_t row);
    // The same line if it is there already; otherwise null.
    std::shared_ptr<EditedLine> edited_line(size_t row) const;

    // The lines from row on, or those that end with row: as many as adjoin and fit limit bytes, one at least.
    Run run_from(size_t row, size_t limit) const;
    Run run_to(size_t row, size_t limit) const;

    std::string& edit(size_t row, size_t room);  // with room for so many bytes more, where it is copied
    void set(size_t row, std::string_view text);
    // text lies in block, with "\n" behind it.
    void set_slice(size_t row, std::string_view text, const std::shared_ptr<const Block>& block);
    void insert(size_t row, const std::vector<std::string>& lines);
    void insert(size_t row, const LineChunk& other);
    void erase(size_t first, size_t last);                             // [first, last)
    std::shared_ptr<LineChunk> part(size_t first, size_t last) const;  // shares the text

private:
    struct Mixed {
        std::vector<Line> lines;
        Blocks blocks;  // those that slices point into, and some that they did
        size_t many = MANY_BLOCKS;
    };

    explicit LineChunk(Mixed mixed) : rows_(mixed.lines.size()), body_(std::move(mixed)) {}
    static Mixed mixed_part(const LineChunk& from, size_t first, size_t last);
    static void add_block(Mixed& mixed, const std::shared_ptr<const Block>& block);
    static void drop_unused_blocks(Mixed& mixed);
    static void tidy(Mixed& mixed) noexcept;
    Mixed& mixed();
    const std::shared_ptr<EditedLine>* edited_text(size_t row) const;  // null where the row is untouched
    void put(size_t row, std::shared_ptr<EditedLine> own);
    bool adjoin(size_t row) const;

    size_t rows_ = 0;
    std::variant<Slice, Mixed> body_;
};
