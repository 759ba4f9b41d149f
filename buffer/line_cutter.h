#pragma once

#include <atomic>
#include <cstddef>
#include <memory>
#include <vector>

#include "buffer/line_breaks.h"
#include "buffer/line_store.h"
#include "buffer/line_tree.h"
#include "files/file_reader.h"

// Cuts a large file into rows while it is read.
//
// Each part is cut by itself, from the first line that begins in it. The line that goes on in the next part is added
// when all of them are there.
class LineCutter : public FileStepUser {
public:
    enum class Clones { Refuse, Take };
    explicit LineCutter(LineStore::Returns returns, Clones clones = Clones::Refuse)
        : returns_(returns), clones_(clones) {}
    LineStore::Returns returns() const { return returns_; }

    void expect(const std::shared_ptr<Block>& block, size_t parts) override;
    void step(size_t part, size_t from, size_t to) override;
    bool takes_clones() const override { return clones_ == Clones::Take; }
    // The bytes of a clone cannot move up. Where a carriage return has to go, the line becomes a text of its own; a
    // file with many of them is no use as a clone.
    bool look(size_t part, size_t from, char* bytes, size_t count) override;
    // The rows of what kpe_read_file has read with this user, by the rules of LineStore::from_block. Empties the
    // cutter.
    LineStore finish(const FileContent& content);

private:
    struct Part {
        SliceCutter cutter{nullptr};
        size_t from = 0;             // the offset of its first byte
        char* first_line = nullptr;  // where the first line begins that begins in the part; null if none does
        LineCutPlace next = {};      // of the line behind those that were cut
        // Of a clone:
        static constexpr int NONE = -1;
        int before_first = NONE;      // the byte in front of the first line break, if both lie in the part
        int last = NONE;              // the last byte
        size_t rows = 0;              // the lines that were cut
        std::vector<size_t> returns;  // those that end in a carriage return which has to go
    };
    void add_line(Part& part, size_t length, int last_byte);
    void add_last_line(Part& part, char* end, int last_byte);
    int byte_before(size_t part) const;
    LineStore join(size_t size);

    const LineStore::Returns returns_;
    const Clones clones_;
    std::shared_ptr<Block> block_;
    std::vector<Part> parts_;
    bool cloned_ = false;
    std::atomic<size_t> returns_found_ = 0;  // in a clone
};
