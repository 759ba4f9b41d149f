#include <algorithm>
#include <utility>

#include "editor/kpe.h"
#include "system/report.h"

namespace {

// States that wait to be freed, at most.
constexpr size_t MOST_DROPPED = 16;
// What lines of HUGE_LINE and more may take up on a stack, in bytes, where the text itself is not larger.
constexpr size_t MOST_HUGE_BYTES = size_t{64} << 20;

// Long lines of a state become differences to those of the next one, which is all that it will be compared with: a
// hundred keys typed in a line of 40 MB must not need a hundred times its memory.
void thin(Editor::UndoSnapshot& old, const Editor::UndoSnapshot& newer) {
    old.thinned = {};
    for (const auto& [name, text] : old.buffers) {
        const auto same = newer.buffers.find(name);
        if (same == newer.buffers.end()) continue;
        const LineStore::Thinned one = text.lines().thin(same->second.lines());
        old.thinned.bytes += one.bytes;
        old.thinned.differences = old.thinned.differences || one.differences;
    }
}

LineStore::Differences differences(const Editor::UndoSnapshot& old, const Editor::UndoSnapshot& newer) {
    LineStore::Differences found;
    if (!old.thinned.differences) return found;
    for (const auto& [name, text] : old.buffers) {
        const auto same = newer.buffers.find(name);
        if (same != newer.buffers.end()) text.lines().add_differences(same->second.lines(), found);
    }
    return found;
}

size_t huge_bytes(const std::deque<Editor::UndoSnapshot>& states) {
    size_t bytes = 0;
    for (const Editor::UndoSnapshot& state : states) bytes += state.thinned.bytes;
    return bytes;
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

// Keeps as many states as the stack may hold. Lines of some megabytes that have next to nothing in common with the
// newer ones are worth fewer steps; all shorter ones are kept for all steps.
void Editor::push_state(States& states, UndoSnapshot state) {
    dropped_states_.reserve(MOST_DROPPED);
    states.push_back(std::move(state));
    if (states.size() == 1) return;
    UndoSnapshot& below = states[states.size() - 2];
    thin(below, states.back());
    while (states.size() > max_undo_) drop_oldest(states);
    if (below.thinned.bytes == 0) return;
    size_t bytes = huge_bytes(states);
    if (bytes <= MOST_HUGE_BYTES) return;
    for (const size_t most = std::max(MOST_HUGE_BYTES, text_bytes()); bytes > most && states.size() > 1;) {
        bytes -= states.front().thinned.bytes;
        drop_oldest(states);
    }
}

void Editor::drop_oldest(States& states) {
    if (dropped_states_.size() == MOST_DROPPED) free_dropped_states();
    // Above the newest state to be redone stands the present one, which was put on the undo stack before.
    const UndoSnapshot& newer = states.size() > 1 ? states[1] : undo_stack_.back();
    dropped_states_.push_back({{}, differences(states.front(), newer)});
    dropped_states_.back().state = std::move(states.front());
    states.pop_front();
}

void Editor::free_dropped_states() {
    for (DroppedState& dropped : dropped_states_) {
        dropped.state = {};
        LineStore::settle(dropped.differences);
    }
    dropped_states_.clear();
}

size_t Editor::text_bytes() const {
    size_t bytes = 0;
    for (const auto& [name, text] : buffers_)
        for (const LineRun& run : text.lines().runs()) bytes += run.bytes.size();
    return bytes;
}

void Editor::begin_undo_unit() {
    push_state(undo_stack_, capture_snapshot());
    while (!redo_stack_.empty()) drop_oldest(redo_stack_);
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

bool Editor::exchange_state(States& from, States& to, const ExchangeTexts& texts, bool report) {
    if (from.empty()) {
        message_ = texts.nothing;
        kpe_complain(report, message_);
        return false;
    }
    push_state(to, capture_snapshot());
    unit_open_ = false;
    UndoSnapshot snapshot = pop(from);
    restore_snapshot(snapshot);
    clamp_cursor();
    save_current_buffer_state();
    message_ = texts.message;
    kpe_say(report, texts.done);
    return true;
}
