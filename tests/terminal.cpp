#include "terminal.h"

#include <vterm.h>

#include <stdexcept>

namespace emulated {
namespace {

// The emulator marks the second half of a wide character so.
constexpr uint32_t SECOND_HALF = static_cast<uint32_t>(-1);

void append_utf8(std::string& text, uint32_t c) {
    if (c < 0x80) {
        text += static_cast<char>(c);
        return;
    }
    const int more = c < 0x800 ? 1 : c < 0x10000 ? 2 : 3;
    constexpr unsigned LEAD[] = {0, 0xc0, 0xe0, 0xf0};
    text += static_cast<char>(LEAD[more] | (c >> (6 * more)));
    for (int i = more - 1; i >= 0; --i) text += static_cast<char>(0x80 | ((c >> (6 * i)) & 0x3f));
}

void cut_trailing(std::string& text, char c) { text.erase(text.find_last_not_of(c) + 1); }

}  // namespace

struct Terminal::Screen {
    VTerm* terminal;
    VTermScreen* cells;
    std::string output;   // from the program
    std::string replies;  // to it
    size_t bells = 0, flashes = 0;
    bool flashing = false;

    Screen(int rows, int cols, bool utf8) : terminal(vterm_new(rows, cols)), cells(vterm_obtain_screen(terminal)) {
        static const VTermScreenCallbacks CALLBACKS = {
            .damage = nullptr,
            .moverect = nullptr,
            .movecursor = nullptr,
            .settermprop = [](VTermProp prop, VTermValue* value,
                              void* self) { return static_cast<Screen*>(self)->property(prop, value->boolean != 0); },
            .bell = [](void* self) { return static_cast<int>(++static_cast<Screen*>(self)->bells > 0); },
            .resize = nullptr,
            .sb_pushline = nullptr,
            .sb_popline = nullptr,
        };
        vterm_set_utf8(terminal, utf8);
        vterm_output_set_callback(
            terminal, [](const char* s, size_t n, void* self) { static_cast<Screen*>(self)->replies.append(s, n); },
            this);
        vterm_screen_enable_altscreen(cells, 1);
        vterm_screen_set_callbacks(cells, &CALLBACKS, this);
        vterm_screen_reset(cells, /*hard=*/1);
    }
    ~Screen() { vterm_free(terminal); }
    Screen(const Screen&) = delete;
    Screen& operator=(const Screen&) = delete;

    int property(VTermProp prop, bool on) {
        if (prop == VTERM_PROP_REVERSE) {
            flashes += on && !flashing;
            flashing = on;
        }
        return 1;
    }
    Position size() const {
        Position size{};
        vterm_get_size(terminal, &size.row, &size.col);
        return size;
    }
    VTermScreenCell cell(int row, int col) const {
        VTermScreenCell cell{};
        vterm_screen_get_cell(cells, {row, col}, &cell);
        return cell;
    }
};

Terminal::Terminal(const Command& command, bool utf8)
    : PseudoTerminal(command), screen_(std::make_unique<Screen>(command.rows, command.cols, utf8)) {}

Terminal::~Terminal() = default;

void Terminal::draw() {
    for (std::string piece; reading_ && read(piece) > 0; piece.clear()) {
        screen_->output += piece;
        vterm_input_write(screen_->terminal, piece.data(), piece.size());
    }
    screen_->replies.erase(0, screen_->replies.empty() ? 0 : write(screen_->replies));
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

void Terminal::keys(std::string_view bytes) {
    send(bytes);
    settle();
}

void Terminal::resize(int rows, int cols) {
    draw();
    vterm_set_size(screen_->terminal, rows, cols);
    PseudoTerminal::resize(rows, cols);
    settle();
}

void Terminal::hang_up() {
    draw();
    PseudoTerminal::hang_up();
}

void Terminal::stop_reading() { reading_ = false; }

int Terminal::status() {
    if (!wait_until([this] { return !running(); })) throw std::runtime_error("the program does not end");
    draw();
    return how_it_ended();
}

std::string Terminal::row(int number) const {
    const Position size = screen_->size();
    std::string text;
    for (int col = 0; number >= 0 && number < size.row && col < size.col; ++col) {
        const VTermScreenCell cell = screen_->cell(number, col);
        if (cell.chars[0] == SECOND_HALF) continue;
        if (cell.chars[0] == 0) text += ' ';
        for (int i = 0; i < VTERM_MAX_CHARS_PER_CELL && cell.chars[i]; ++i) append_utf8(text, cell.chars[i]);
    }
    cut_trailing(text, ' ');
    return text;
}

std::string Terminal::all() const {
    std::string text;
    for (int number = 0; number < screen_->size().row; ++number) text += row(number) + "\n";
    cut_trailing(text, '\n');
    return text + "\n";
}

std::string Terminal::reversed(int number) const {
    const Position size = screen_->size();
    std::string marks;
    for (int col = 0; number >= 0 && number < size.row && col < size.col; ++col)
        marks += (screen_->cell(number, col).attrs.reverse != 0) != screen_->flashing ? 'R' : '.';
    cut_trailing(marks, '.');
    return marks;
}

Position Terminal::cursor() const {
    VTermPos position{};
    vterm_state_get_cursorpos(vterm_obtain_state(screen_->terminal), &position);
    return {position.row, position.col};
}

size_t Terminal::bells() const { return screen_->bells; }
size_t Terminal::flashes() const { return screen_->flashes; }
const std::string& Terminal::output() const { return screen_->output; }
void Terminal::forget_output() { screen_->output.clear(); }

size_t Terminal::sent(std::string_view bytes) const {
    size_t count = 0;
    for (size_t from = 0; (from = output().find(bytes, from)) != std::string::npos; from += bytes.size()) ++count;
    return count;
}

}  // namespace emulated
