#pragma once

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
    explicit LineCutter(LineStore::Returns returns) : returns_(returns) {}
    LineStore::Returns returns() const { return returns_; }

    void expect(const std::shared_ptr<Block>& block, size_t parts) override;
    void step(size_t part, size_t from, size_t to) override;
    // The rows of what kpe_read_file has read with this user, by the rules of LineStore::from_block. Empties the
    // cutter.
    LineStore finish(const FileContent& content);

private:
    struct Part {
        SliceCutter cutter{nullptr};
        size_t from = 0;             // the offset of its first byte
        char* first_line = nullptr;  // where the first line begins that begins in the part; null if none does
        LineCutPlace next = {};      // of the line behind those that were cut
    };
    void add_last_line(Part& part, char* end) const;
    LineStore join(size_t size);

    const LineStore::Returns returns_;
    std::shared_ptr<Block> block_;
    std::vector<Part> parts_;
};
