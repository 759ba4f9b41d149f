#include "terminal.h"

#include <stdexcept>

namespace {

// The last question about itself that a terminal is asked.
constexpr std::string_view LAST_QUESTION = "\033[c";

struct KeyMode {
    const char* name;
    std::string_view on, off;
};
constexpr KeyMode KEY_MODES[] = {
    {"digits", "\033[?1035h", "\033[?1035l"},  // the keypad sends digits when Num Lock is on
    {"keypad", "\033=", "\033>"},
    {"paste", "\033[?2004h", "\033[?2004l"},
    {"protocol", "\033[>29u", "\033[<u"},
};
constexpr size_t LONGEST_MODE = 8;

void cut_trailing(std::string& text, char c) { text.erase(text.find_last_not_of(c) + 1); }

}  // namespace

Terminal::Terminal(const Command& command, bool utf8, std::optional<std::string> answers)
    : PseudoTerminal(command),
      answers_(std::move(answers)),
      emulator_(vterm_new(command.rows, command.cols)),
      screen_(vterm_obtain_screen(emulator_)) {
    static const VTermScreenCallbacks CALLBACKS = [] {
        VTermScreenCallbacks result{};
        result.settermprop = on_property;
        result.bell = [](void* self) { return ++static_cast<Terminal*>(self)->bells_, 1; };
        return result;
    }();
    const auto reply = [](const char* bytes, size_t n, void* self) {
        auto& terminal = *static_cast<Terminal*>(self);
        if (!terminal.answers_) terminal.replies_.append(bytes, n);
    };
    vterm_set_utf8(emulator_, utf8);
    vterm_output_set_callback(emulator_, reply, this);
    vterm_screen_enable_altscreen(screen_, 1);
    vterm_screen_set_callbacks(screen_, &CALLBACKS, this);
    vterm_screen_reset(screen_, /*hard=*/1);
}

int Terminal::on_property(VTermProp prop, VTermValue* value, void* self) {
    auto& terminal = *static_cast<Terminal*>(self);
    if (prop != VTERM_PROP_REVERSE) return 1;
    terminal.flashes_ += value->boolean && !terminal.flashing_;
    terminal.flashing_ = value->boolean != 0;
    return 1;
}

// Of two sequences for a mode the later one holds.
void Terminal::note_modes(const std::string& piece) {
    last_output_ += piece;
    for (const KeyMode& mode : KEY_MODES) {
        const size_t on = last_output_.rfind(mode.on), off = last_output_.rfind(mode.off);
        if (on == off) continue;
        key_modes_[mode.name] = off == std::string::npos || (on != std::string::npos && on > off);
    }
    if (answers_ && last_output_.find(LAST_QUESTION) != std::string::npos) replies_ += *answers_;
    last_output_.erase(0, last_output_.size() - std::min(last_output_.size(), LONGEST_MODE - 1));
}

std::string Terminal::key_modes() const {
    std::string names;
    for (const auto& [name, on] : key_modes_)
        if (on) names += (names.empty() ? "" : " ") + name;
    return names;
}

void Terminal::draw() {
    for (std::string piece; reading_ && read(piece) > 0; piece.clear()) {
        output_ += piece;
        note_modes(piece);
        vterm_input_write(emulator_, piece.data(), piece.size());
    }
    if (!replies_.empty()) replies_.erase(0, write(replies_));
}

void Terminal::settle() {
    if (!wait_until([this] { return !running() || waits_for_input(); }))
        throw std::runtime_error("the program does not wait for input");
}

bool Terminal::wait_until(const std::function<bool()>& holds, std::chrono::milliseconds patience) {
    const auto end = std::chrono::steady_clock::now() + patience;
    while (true) {
        running();
        draw();
        if (holds()) return true;
        if (std::chrono::steady_clock::now() >= end) return false;
        output_within(std::chrono::milliseconds(1));
    }
}

void Terminal::send(std::string_view bytes) {
    const auto taken = [&] {
        bytes.remove_prefix(running() && !bytes.empty() ? write(bytes) : bytes.size());
        return bytes.empty();
    };
    if (!wait_until(taken)) throw std::runtime_error("the program does not read");
}

void Terminal::resize(int rows, int cols) {
    draw();
    vterm_set_size(emulator_, rows, cols);
    PseudoTerminal::resize(rows, cols);
    settle();
}

void Terminal::hang_up() {
    draw();
    PseudoTerminal::hang_up();
}

int Terminal::status() {
    if (!wait_until([this] { return !running(); })) throw std::runtime_error("the program does not end");
    draw();
    return ended_with();
}

VTermPos Terminal::size() const {
    VTermPos size{};
    vterm_get_size(emulator_, &size.row, &size.col);
    return size;
}

std::string Terminal::row(int number) const {
    if (number < 0 || number >= size().row) return "";
    std::string text(static_cast<size_t>(size().col) * VTERM_MAX_CHARS_PER_CELL * 4, ' ');
    text.resize(vterm_screen_get_text(screen_, text.data(), text.size(), {number, number + 1, 0, size().col}));
    cut_trailing(text, ' ');
    return text;
}

std::string Terminal::all() const {
    std::string text;
    for (int number = 0; number < size().row; ++number) text += row(number) + "\n";
    cut_trailing(text, '\n');
    return text + "\n";
}

std::string Terminal::reversed(int row) const {
    std::string marks;
    for (int col = 0; row >= 0 && row < size().row && col < size().col; ++col) {
        VTermScreenCell cell{};
        vterm_screen_get_cell(screen_, {row, col}, &cell);
        marks += (cell.attrs.reverse != 0) != flashing_ ? 'R' : '.';
    }
    cut_trailing(marks, '.');
    return marks;
}

std::string Terminal::cursor() const {
    VTermPos position{};
    vterm_state_get_cursorpos(vterm_obtain_state(emulator_), &position);
    return std::to_string(position.row) + "," + std::to_string(position.col);
}

size_t Terminal::sent(std::string_view bytes) const {
    size_t count = 0;
    for (size_t from = 0; (from = output().find(bytes, from)) != std::string::npos; from += bytes.size()) ++count;
    return count;
}
