#include "buffer/edited_line.h"

#include <algorithm>
#include <cstring>
#include <mutex>
#include <vector>

namespace {

constexpr size_t PIECE = size_t{4} << 10;  // bytes that are compared at once

}  // namespace

CommonEnds kpe_common_ends(std::string_view a, std::string_view b) {
    const size_t most = std::min(a.size(), b.size());
    CommonEnds ends;
    while (most - ends.head >= PIECE && std::memcmp(a.data() + ends.head, b.data() + ends.head, PIECE) == 0)
        ends.head += PIECE;
    while (ends.head < most && a[ends.head] == b[ends.head]) ++ends.head;
    const size_t rest = most - ends.head;
    const char *a_end = a.data() + a.size(), *b_end = b.data() + b.size();
    const auto same = [&](size_t n) { return std::memcmp(a_end - ends.tail - n, b_end - ends.tail - n, n) == 0; };
    while (rest - ends.tail >= PIECE && same(PIECE)) ends.tail += PIECE;
    while (ends.tail < rest && same(1)) ++ends.tail;
    return ends;
}

std::string& EditedLine::string() {
    const std::string_view all = view();
    if (block_) {
        text_ = std::string(all);
        block_.reset();
    }
    return text_;
}

void EditedLine::thin(const std::shared_ptr<EditedLine>& newer, CommonEnds ends) {
    std::string between(view().substr(ends.head, size() - ends.both()));
    text_.swap(between);  // to assign a short string would keep the memory of the long one
    block_.reset();
    newer_ = newer;
    ends_ = ends;
    difference_ = true;
}

void EditedLine::restore() {
    // One for all lines: they are few, and one may be part of another.
    static std::mutex restoring;
    const std::lock_guard lock(restoring);
    if (!newer_) return;  // another thread has done it meanwhile
    text_ = whole_text();
    newer_.reset();
    difference_.store(false, std::memory_order_release);
}

// The newer line may be a difference itself, and so on: from the first whole one back.
std::string EditedLine::whole_text() const {
    std::vector<const EditedLine*> differences;
    size_t most = 0;
    const EditedLine* whole = this;
    for (; whole->newer_; whole = whole->newer_.get()) {
        differences.push_back(whole);
        most = std::max(most, whole->size());
    }
    std::string text;
    text.reserve(most);
    const EditedLine& last = *differences.back();
    const std::string_view from = whole->block_ ? whole->in_block_ : std::string_view(whole->text_);
    text.append(from.substr(0, last.ends_.head)).append(last.text_);
    text.append(from.substr(from.size() - last.ends_.tail));
    differences.pop_back();
    for (; !differences.empty(); differences.pop_back()) {
        const EditedLine& line = *differences.back();
        text.replace(line.ends_.head, text.size() - line.ends_.both(), line.text_);
    }
    return text;
}
