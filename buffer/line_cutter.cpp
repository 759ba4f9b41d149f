#include "buffer/line_cutter.h"

#include <cstring>

namespace {

constexpr size_t MANY_RETURNS = size_t{64} << 10;

// Never negative, so that no byte is taken for the absence of one.
int byte_at(const char* place) { return static_cast<unsigned char>(*place); }

}  // namespace

void LineCutter::expect(const std::shared_ptr<Block>& block, size_t parts) {
    block_ = block;
    parts_ = std::vector<Part>(parts);
    cloned_ = block->file() != nullptr;
    returns_found_ = 0;
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

// Of a clone; its lines keep their carriage returns for now.
void LineCutter::add_line(Part& part, size_t length, int last_byte) {
    if (length > 0 && last_byte == '\r') {
        part.returns.push_back(part.rows);
        ++returns_found_;
    }
    part.cutter.add(length);
    ++part.rows;
}

bool LineCutter::look(size_t number, size_t from, char* bytes, size_t count) {
    Part& part = parts_[number];
    char* const place = block_->data() + from;
    char* begin = bytes;
    char* const end = bytes + count;
    if (!part.first_line) {
        if (from > 0) {
            char* const line_break = static_cast<char*>(std::memchr(begin, '\n', count));
            part.before_first = line_break && line_break > bytes ? byte_at(line_break - 1) : part.last;
            part.last = byte_at(end - 1);
            if (!line_break) return true;
            begin = line_break + 1;
        }
        part.from = from;
        part.first_line = place + (begin - bytes);
        part.next = {part.first_line, part.first_line};
        part.cutter.start_at(block_, part.first_line);
    }
    kpe_each_line_break(begin, end, [&](char* line_break) {
        char* const line_end = place + (line_break - bytes);
        add_line(part, static_cast<size_t>(line_end - part.next.in),
                 line_break > bytes ? byte_at(line_break - 1) : part.last);
        part.next.in = line_end + 1;
    });
    part.last = byte_at(end - 1);
    // Where returns are kept unless all line ends have one, the first line decides.
    const bool keeps = returns_ == LineStore::Returns::Keep;
    return keeps ? number > 0 || part.returns.empty() || part.returns[0] > 0 : returns_found_ < MANY_RETURNS;
}

// The last byte of a clone in front of that part.
int LineCutter::byte_before(size_t part) const { return part > 0 ? parts_[part - 1].last : Part::NONE; }

// The line that goes on behind the part; end is its line break.
void LineCutter::add_last_line(Part& part, char* end, int last_byte) {
    const size_t length = static_cast<size_t>(end - part.next.in);
    part.cutter.start_at(block_, part.next.in);
    if (cloned_) return add_line(part, length, last_byte);
    const bool returns = returns_ == LineStore::Returns::Drop && length > 0 && end[-1] == '\r';
    if (returns) --end;
    *end = '\n';
    part.cutter.add(length - (returns ? 1 : 0));
}

LineStore LineCutter::join(size_t size) {
    char* end = block_->data() + size;
    LineTreeBuilder tree;
    size_t rows = 0;
    std::vector<size_t> returns;
    const auto close = [&](Part& part) {
        part.cutter.finish();
        for (auto& chunk : part.cutter.take_chunks()) tree.add_new(std::move(chunk));
        for (const size_t row : part.returns) returns.push_back(rows + row);
        rows += part.rows;
    };
    Part* open = nullptr;  // the last part so far in which a line begins
    int last_byte = Part::NONE;
    for (size_t number = 0; number < parts_.size(); ++number) {
        Part& part = parts_[number];
        if (number * FILE_PART < size) last_byte = part.last;
        if (!part.first_line || part.from >= size) continue;
        if (open) {
            add_last_line(*open, part.first_line - 1,
                          part.before_first == Part::NONE ? byte_before(number) : part.before_first);
            close(*open);
        }
        open = &part;
    }
    if (open) {
        if (open->next.in != end) add_last_line(*open, end++, last_byte);
        close(*open);
    }
    block_->set_size(static_cast<size_t>(end - block_->data()));
    LineStore lines(tree.finish());
    if (returns_ == LineStore::Returns::Keep) return lines;
    for (const size_t row : returns) {
        const std::string_view line = lines.view(row);
        lines.set(row, line.substr(0, line.size() - 1));
    }
    return lines;
}

LineStore LineCutter::finish(const FileContent& content) {
    LineStore lines = content.in_steps ? join(content.block->size()) : LineStore::from_block(content.block, returns_);
    parts_.clear();
    block_.reset();
    return lines;
}
