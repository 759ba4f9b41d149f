#include "buffer/line_cutter.h"

#include <cstring>

void LineCutter::expect(const std::shared_ptr<Block>& block, size_t parts) {
    block_ = block;
    parts_ = std::vector<Part>(parts);
}

void LineCutter::step(size_t number, size_t from, size_t to) {
    Part& part = parts_[number];
    char* begin = block_->data() + from;
    char* const end = block_->data() + to;
    if (!part.first_line) {
        if (from > 0) {
            char* const line_break = static_cast<char*>(std::memchr(begin, '\n', to - from));
            if (!line_break) return;
            begin = line_break + 1;
        }
        part.from = from;
        part.first_line = begin;
        part.next = {begin, begin};
        part.cutter.start_at(block_, begin);
    }
    part.next = kpe_cut_lines(begin, end, part.next, returns_ == LineStore::Returns::Drop,
                              [&](size_t length) { part.cutter.add(length); });
}

// The line that goes on behind the part; end is its line break.
void LineCutter::add_last_line(Part& part, char* end) const {
    const bool returns = returns_ == LineStore::Returns::Drop && end != part.next.in && end[-1] == '\r';
    if (returns) --end;
    *end = '\n';
    part.cutter.start_at(block_, part.next.in);
    part.cutter.add(static_cast<size_t>(end - part.next.in));
}

LineStore LineCutter::join(size_t size) {
    char* end = block_->data() + size;
    LineTreeBuilder tree;
    const auto close = [&](Part& part) {
        part.cutter.finish();
        for (auto& chunk : part.cutter.take_chunks()) tree.add_new(std::move(chunk));
    };
    Part* open = nullptr;  // the last part so far in which a line begins
    for (Part& part : parts_) {
        if (!part.first_line || part.from >= size) continue;
        if (open) {
            add_last_line(*open, part.first_line - 1);
            close(*open);
        }
        open = &part;
    }
    if (open) {
        if (open->next.in != end) add_last_line(*open, end++);
        close(*open);
    }
    block_->set_size(static_cast<size_t>(end - block_->data()));
    return LineStore(tree.finish());
}

LineStore LineCutter::finish(const FileContent& content) {
    LineStore lines = content.in_steps ? join(content.block->size()) : LineStore::from_block(content.block, returns_);
    parts_.clear();
    block_.reset();
    return lines;
}
