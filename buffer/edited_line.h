#pragma once

#include <atomic>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "system/block.h"

// How many bytes two texts have in common at the start (head), and how many of the others at the end (tail).
struct CommonEnds {
    size_t head = 0, tail = 0;
    size_t both() const { return head + tail; }
};
CommonEnds kpe_common_ends(std::string_view a, std::string_view b);

// The text of one edited line. Copies of a LineStore share it; nothing else uses it.
//
// A long line of an older undo state may be kept as its difference to a newer text of the same line: how many bytes
// both have in common at the start and at the end, and what lies between. To read such a line makes it whole again for
// all who share it. If there is no memory for that, it throws std::bad_alloc, and the line stays as it was.
class EditedLine {
public:
    explicit EditedLine(std::string text) : text_(std::move(text)) {}
    // A line whose text stays where it is: bytes, which lie in block.
    EditedLine(std::shared_ptr<const Block> block, std::string_view bytes)
        : block_(std::move(block)), in_block_(bytes) {}

    size_t size() const { return newer_ ? text_.size() + ends_.both() : block_ ? in_block_.size() : text_.size(); }
    bool is_difference() const { return newer_ != nullptr; }
    // Whether string() can be called without taking memory.
    bool has_string() const { return !newer_ && !block_; }
    // The bytes kept for this line alone: of a difference only those in the middle.
    size_t own_bytes() const { return newer_ ? text_.size() : size(); }

    // Threads may call it at the same time for lines of one text.
    std::string_view view() {
        if (difference_.load(std::memory_order_acquire)) restore();
        return block_ ? in_block_ : std::string_view(text_);
    }
    std::string& string();

    // Turns this line into its difference to newer, with which it has these ends in common. Both lines have to be
    // whole. newer must not change afterwards, and no view of this line may be in use.
    void thin(const std::shared_ptr<EditedLine>& newer, CommonEnds ends);

private:
    void restore();
    std::string whole_text() const;

    std::atomic<bool> difference_ = false;  // whether there is a newer_; also for other threads
    std::string text_;  // the whole text; of a difference what lies between head and tail; unused with a block
    std::shared_ptr<const Block> block_;
    std::string_view in_block_;
    std::shared_ptr<EditedLine> newer_;
    CommonEnds ends_;  // what it has in common with newer_
};
