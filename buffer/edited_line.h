#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "system/block.h"

// How many bytes a and b have in common in front, and behind that in the end.
struct CommonEnds {
    size_t head = 0, tail = 0;
    size_t both() const { return head + tail; }
};
CommonEnds kpe_common_ends(std::string_view a, std::string_view b);

// The text of one edited line, which copies of a store share. Part of the store's inside.
//
// A long line of an older state is kept as its difference to a newer text of it: how many bytes both have in common in
// front and behind, and what lies between them. Whoever reads such a line makes it whole again for all who share it;
// that throws std::bad_alloc where there is no memory, and the line stays what it was.
class EditedLine {
public:
    explicit EditedLine(std::string text) : text_(std::move(text)) {}
    // bytes lie in block, and stay there.
    EditedLine(std::shared_ptr<const Block> block, std::string_view bytes)
        : block_(std::move(block)), in_block_(bytes) {}

    size_t size() const { return newer_ ? text_.size() + ends_.both() : block_ ? in_block_.size() : text_.size(); }
    bool is_difference() const { return newer_ != nullptr; }
    // Whether string() takes no memory.
    bool has_string() const { return !newer_ && !block_; }
    size_t own_bytes() const { return newer_ ? text_.size() : size(); }

    std::string_view view() {
        if (newer_) restore();
        return block_ ? in_block_ : std::string_view(text_);
    }
    std::string& string();

    // Becomes the difference to newer, with which it has these ends in common. Both are whole, and newer must not
    // change from then on. No view of this line may be in use.
    void thin(const std::shared_ptr<EditedLine>& newer, CommonEnds ends);

private:
    void restore();

    std::string text_;  // all of it; of a difference what lies between head and tail; unused with a block
    std::shared_ptr<const Block> block_;
    std::string_view in_block_;
    std::shared_ptr<EditedLine> newer_;
    CommonEnds ends_;  // with newer_
};
