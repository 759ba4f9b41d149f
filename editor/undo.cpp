#include <utility>

#include "editor/kpe.h"
#include "system/report.h"

namespace {

// States that wait to be freed, at most.
constexpr size_t MOST_DROPPED = 16;

// Keeps the newest snapshots: the oldest one goes to dropped when there are more than the stack may hold.
void push(std::deque<Editor::UndoSnapshot>& stack, Editor::UndoSnapshot snapshot,
          std::vector<Editor::UndoSnapshot>& dropped) {
    dropped.reserve(MOST_DROPPED);
    stack.push_back(std::move(snapshot));
    if (stack.size() <= Editor::max_undo_) return;
    if (dropped.size() == MOST_DROPPED) dropped.clear();
    dropped.push_back(std::move(stack.front()));
    stack.pop_front();
}

Editor::UndoSnapshot pop(std::deque<Editor::UndoSnapshot>& stack) {
    Editor::UndoSnapshot newest = std::move(stack.back());
    stack.pop_back();
    return newest;
}

}  // namespace

Editor::UndoSnapshot Editor::capture_snapshot() {
    save_current_buffer_state();
    return {buffer_,    buffers_,     current_buffer_name_, cursor_row_,         cursor_col_,         top_line_,
            direction_, last_search_, delete_char_buffer_,  delete_line_buffer_, delete_word_buffer_, overstrike_};
}

// The snapshot's texts become the editor's: this needs no memory, so nothing of it can fail.
void Editor::restore_snapshot(UndoSnapshot& snapshot) {
    buffer_ = std::move(snapshot.buffer);
    buffers_ = std::move(snapshot.buffers);
    current_buffer_name_ = std::move(snapshot.current_buffer_name);
    cursor_row_ = snapshot.cursor_row;
    cursor_col_ = snapshot.cursor_col;
    top_line_ = snapshot.top_line;
    direction_ = snapshot.direction;
    last_search_ = std::move(snapshot.last_search);
    delete_char_buffer_ = std::move(snapshot.delete_char_buffer);
    delete_line_buffer_ = std::move(snapshot.delete_line_buffer);
    delete_word_buffer_ = std::move(snapshot.delete_word_buffer);
    overstrike_ = snapshot.overstrike;
}

void Editor::begin_undo_unit() {
    push(undo_stack_, capture_snapshot(), dropped_states_);
    redo_stack_.clear();
    unit_open_ = true;
}

void Editor::take_back_unit() {
    if (!unit_open_ || undo_stack_.empty()) return;
    unit_open_ = false;
    UndoSnapshot before = pop(undo_stack_);
    restore_snapshot(before);
    clamp_cursor();
}

bool Editor::undo_last(bool report) {
    return exchange_state(undo_stack_, redo_stack_, {"Nothing to undo", "UNDO", "Undo completed"}, report);
}

bool Editor::redo_last(bool report) {
    return exchange_state(redo_stack_, undo_stack_, {"Nothing to redo", "REDO", "Redo completed"}, report);
}

bool Editor::exchange_state(std::deque<UndoSnapshot>& from, std::deque<UndoSnapshot>& to, const ExchangeTexts& texts,
                            bool report) {
    if (from.empty()) {
        message_ = texts.nothing;
        kpe_complain(report, message_);
        return false;
    }
    push(to, capture_snapshot(), dropped_states_);
    unit_open_ = false;
    UndoSnapshot snapshot = pop(from);
    restore_snapshot(snapshot);
    clamp_cursor();
    save_current_buffer_state();
    message_ = texts.message;
    kpe_say(report, texts.done);
    return true;
}
