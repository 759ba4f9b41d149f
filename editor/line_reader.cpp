#include "editor/line_reader.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <curses.h>
#include <iterator>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>
#include <utility>

#include "buffer/characters.h"
#include "editor/key_codes.h"
#include "editor/key_decoder.h"
#include "editor/line_history.h"
#include "editor/on_screen.h"
#include "system/idle.h"
#include "system/input.h"
#include "system/interrupts.h"
#include "system/report.h"
#include "system/signals.h"
#include "system/terminal.h"
#include "system/wait.h"

namespace {

using Kind = LineRequest::Kind;

constexpr char CTRL_Z = 26;
constexpr size_t USUAL_COLUMNS = 80;
constexpr std::string_view CLEAR_TO_END = "\033[K";

volatile std::sig_atomic_t g_resized = 0, g_stop_wanted = 0, g_went_on = 0;

void note_signal(int number) {
    if (number == SIGWINCH) g_resized = 1;
    if (number == SIGTSTP) g_stop_wanted = 1;
    if (number == SIGCONT) g_went_on = 1;
}

bool something_noted() { return g_resized || g_stop_wanted || g_went_on || g_kpe_abort_requested; }

// The entry of the terminal is not asked: arrows and other keys of editing are the same in all that matter here.
int defined(const char* bytes) {
    return bytes[0] == KPE_ESCAPE && bytes[1] == '\0' ? ERR : OK;  // Escape begins sequences
}
size_t length_of(int, const std::string&) { return 1; }
int code_of(const std::string&) { return 0; }
constexpr KeyEntry NO_ENTRY = {defined, length_of, code_of};

size_t terminal_columns() {
    winsize size{};
    const bool told = ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
    return told ? size.ws_col : USUAL_COLUMNS;
}

bool terminal_at_both_ends() {
    static const bool typed = isatty(STDIN_FILENO) != 0;
    return typed && isatty(STDOUT_FILENO) != 0;
}

// One line while it is typed on the terminal.
class TypedLine {
public:
    TypedLine(std::string_view prompt, const LineRequest& request, const termios& usual)
        : request_(request), editor_(std::string(prompt), request.history, request.completer), usual_(usual) {}
    ~TypedLine() { leave(); }
    TypedLine(const TypedLine&) = delete;
    TypedLine& operator=(const TypedLine&) = delete;

    std::optional<std::string> read();

private:
    struct SignalRow {
        int number;
        struct sigaction before;
    };

    void enter();
    void leave();
    bool follow_signals();
    bool read_more();
    Waited wait_for_more();
    void take(std::string_view bytes);
    void take_paste(std::string_view bytes);
    void take_key(int key);
    int usual_key(int key) const;
    bool is(size_t which, int key) const;
    void leave_row(std::optional<size_t> which);
    void interrupt();
    void stop(bool typed);
    void end_of_input();
    void draw();
    void show_words(const std::vector<std::string>& words);
    void show_finished();

    const LineRequest& request_;
    LineEditor editor_;
    KeyDecoder decoder_{NO_ENTRY};  // bytes over 127 are text as they come, whether they are characters or not
    const termios usual_;
    std::optional<TerminalModes> modes_;
    std::array<SignalRow, 3> signals_{{{SIGWINCH, {}}, {SIGTSTP, {}}, {SIGCONT, {}}}};
    std::optional<PasteText> paste_;      // one that has not ended yet
    std::string row_ = editor_.prompt();  // what the terminal shows
    size_t row_cursor_ = row_.size();     // bytes of row_ in front of the cursor
    bool anew_ = false;                   // the terminal may show something else
    bool ended_ = false;                  // without a line
    bool unbroken_ = false;               // the line has no line break on the screen
    bool text_follows_ = false;           // the key that is taken, in the same read
    bool end_asked_ = false;              // the last key was Ctrl/D, behind text
};

void TypedLine::enter() {
    modes_.emplace([](termios& modes) {
        modes.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO | IEXTEN);
        modes.c_iflag &= ~static_cast<tcflag_t>(ICRNL | INLCR | IGNCR);
        modes.c_cc[VMIN] = 1;
        modes.c_cc[VTIME] = 0;
        modes.c_cc[VINTR] = modes.c_cc[VSUSP] = _POSIX_VDISABLE;
    });
    g_resized = 0;
    g_stop_wanted = 0;
    g_went_on = 0;
    for (SignalRow& row : signals_) {
        sigaction(row.number, nullptr, &row.before);
        if (row.before.sa_handler != SIG_IGN || row.number == SIGWINCH) kpe_set_handler(row.number, note_signal);
    }
    if (kpe_end_type_ahead() > 0) anew_ = true;  // the terminal has shown what was typed ahead
}

void TypedLine::leave() {
    if (!modes_) return;
    kpe_flush();
    if (kpe_in_background()) modes_->keep();
    modes_.reset();
    kpe_expect_type_ahead();
    for (const SignalRow& row : signals_) sigaction(row.number, &row.before, nullptr);
}

// false: the process has to end, or an operation has to stop.
bool TypedLine::follow_signals() {
    if (g_kpe_abort_requested) return false;
    if (g_stop_wanted) {
        stop(/*typed=*/false);
    } else if (g_went_on) {  // whoever had the terminal meanwhile may have changed it
        leave();
        enter();
        anew_ = true;
    } else if (g_resized) {
        g_resized = 0;
        anew_ = true;
    }
    return !g_kpe_abort_requested;
}

Waited TypedLine::wait_for_more() {
    static const sigset_t signals = kpe_ending_signals_and({SIGWINCH, SIGTSTP, SIGCONT});
    if (kpe_raw_waits()) return Waited::Input;
    if (decoder_.begun()) {
        const auto patience = std::chrono::nanoseconds(decoder_.patience(/*owes_answer=*/false)).count();
        const timespec limit = {patience / 1'000'000'000, patience % 1'000'000'000};
        return kpe_wait({.signals = signals, .noted = something_noted, .limit = &limit});
    }
    for (;;) {
        const std::optional<timespec> idle = IdleWork::longest_wait();
        const Waited waited =
            kpe_wait({.signals = signals, .noted = something_noted, .limit = idle ? &*idle : nullptr});
        if (waited != Waited::TimeUp) return waited;
        IdleWork::do_due();
    }
}

// Reads what is there. false: there will be no more.
bool TypedLine::read_more() {
    std::array<char, 4096> block;
    const ssize_t n = kpe_read_raw(block.data(), block.size());
    if (n <= 0) return n < 0 && (errno == EINTR || errno == EAGAIN);
    take({block.data(), static_cast<size_t>(n)});
    return true;
}

// What follows the end of the line is for whoever reads next.
void TypedLine::take(std::string_view bytes) {
    while (!bytes.empty() && !editor_.finished() && !ended_) {
        if (paste_) {
            const bool alone = bytes.size() == 1 && is(VINTR, static_cast<unsigned char>(bytes[0]));
            const size_t taken = alone ? 1 : paste_->add(bytes);
            bytes.remove_prefix(taken);
            if (alone || paste_->ended()) return take_paste(bytes);
            continue;
        }
        decoder_.add(bytes.front());
        bytes.remove_prefix(1);
        text_follows_ = !bytes.empty() && bytes.front() != KPE_TAB;
        while (const auto key = decoder_.key(/*no_more=*/false)) take_key(*key);
    }
    kpe_give_back(bytes);
}

// The paste is complete; bytes came behind it. Its first line is the end of this one.
void TypedLine::take_paste(std::string_view bytes) {
    kpe_give_back(bytes);
    if (paste_->lost()) kpe_send_to_terminal("\a");
    kpe_queue_pasted(paste_->take());
    paste_.reset();
    if (const auto piece = kpe_next_pasted()) {
        editor_.type(piece->text);
        if (piece->ends_line) editor_.finish();
    }
}

// Whether key is this one of the terminal's control characters.
bool TypedLine::is(size_t which, int key) const {
    const bool is_signal = which == VINTR || which == VSUSP;
    if (is_signal && !(usual_.c_lflag & ISIG)) return false;
    return usual_.c_cc[which] != _POSIX_VDISABLE && key == usual_.c_cc[which];
}

// The key that does what the user has told the terminal.
int TypedLine::usual_key(int key) const {
    if (is(VERASE, key)) return KPE_DELETE;
    if (is(VKILL, key)) return kpe_ctrl('U');
    if (is(VWERASE, key)) return kpe_ctrl('W');
    if (is(VLNEXT, key)) return kpe_ctrl('V');
    return key;
}

void TypedLine::take_key(int key) {
    const bool asked_before = std::exchange(end_asked_, false);
    if (editor_.takes_literally()) return editor_.key(key);
    if (key == KPE_TAB && text_follows_) return editor_.type("\t");  // nobody types so fast: it is pasted
    if (key == KPE_PASTE) {  // where another program has left the terminal so that it marks pastes
        paste_.emplace();
    } else if (is(VINTR, key)) {
        interrupt();
    } else if (is(VSUSP, key)) {
        stop(/*typed=*/true);
    } else if (is(VEOF, key)) {
        end_asked_ = !editor_.line().empty();
        if (asked_before || !end_asked_) end_of_input();
    } else if (request_.kind == Kind::Inserted && key == CTRL_Z) {
        editor_.type({&CTRL_Z, 1});
        if (editor_.line().find_first_not_of(" \t\032") == std::string::npos) editor_.finish();
    } else {
        editor_.key(usual_key(key), text_follows_);
    }
}

// Ends the reading; a line that was begun is one without a line break.
void TypedLine::end_of_input() {
    ended_ = editor_.line().empty();
    unbroken_ = !ended_;
    if (unbroken_) editor_.finish();
}

// Shows behind the line which control character was typed, if one was.
void TypedLine::leave_row(std::optional<size_t> which) {
    draw();
    kpe_send_to_terminal("\r" + row_);
    if (which) kpe_print(std::string(1, static_cast<char>(usual_.c_cc[*which])));
}

void TypedLine::interrupt() {
    leave_row(VINTR);
    if (request_.kind != Kind::Answer && !editor_.line().empty()) {
        kpe_end_line();
        editor_.clear();
        anew_ = true;
        return;
    }
    leave();
    kill(0, SIGINT);  // as the terminal does it
    if (g_kpe_abort_requested) return;
    enter();
    anew_ = true;
}

// typed: the whole job stops, as the terminal does it.
void TypedLine::stop(bool typed) {
    leave_row(typed ? std::optional<size_t>(VSUSP) : std::nullopt);
    leave();
    kill(typed ? 0 : getpid(), SIGTSTP);
    if (g_kpe_abort_requested) return;
    enter();
    anew_ = true;
}

void TypedLine::draw() {
    const LineEditor::View view = editor_.view(terminal_columns());
    const bool at_end = view.cursor == view.row.size();
    if (at_end && !anew_ && row_cursor_ == row_.size() && view.row.starts_with(row_)) {
        kpe_send_to_terminal(std::string_view(view.row).substr(row_.size()));
    } else if (anew_ || view.row != row_ || view.cursor != row_cursor_) {
        std::string bytes = "\r" + view.row;
        bytes += CLEAR_TO_END;
        if (!at_end) bytes += "\r" + view.row.substr(0, view.cursor);
        kpe_send_to_terminal(bytes);
    }
    row_ = view.row;
    row_cursor_ = view.cursor;
    anew_ = false;
    if (editor_.take_bell()) kpe_send_to_terminal("\a");
}

// In columns, from left to right.
void TypedLine::show_words(const std::vector<std::string>& words) {
    const auto cells = [](const std::string& word) { return kpe_view_columns(word, 0, word.size(), USUAL_COLUMNS); };
    size_t widest = 0;
    for (const std::string& word : words) widest = std::max(widest, cells(word) + 2);
    const size_t in_row = std::max<size_t>(terminal_columns() / widest, 1);
    for (size_t i = 0; i < words.size(); ++i) {
        if (i % in_row == 0) kpe_end_line();
        kpe_print(words[i]);
        if ((i + 1) % in_row != 0) kpe_print(std::string(widest - cells(words[i]), ' '));
    }
    kpe_end_line();
    anew_ = true;
}

// As the terminal would have shown it, over as many rows as it takes.
void TypedLine::show_finished() {
    if (editor_.view(terminal_columns()).exact) {
        draw();
    } else {
        kpe_send_to_terminal("\r");
        kpe_send_to_terminal(CLEAR_TO_END);
        kpe_print(editor_.prompt());
        kpe_print(editor_.line());
    }
    if (!unbroken_) kpe_end_line();
}

std::optional<std::string> TypedLine::read() {
    enter();
    if (const auto piece = kpe_next_pasted()) {
        editor_.type(piece->text);
        if (piece->ends_line) editor_.finish();
    }
    while (!editor_.finished()) {
        if (something_noted() && !follow_signals()) return std::nullopt;
        if (ended_) return std::nullopt;
        if (!kpe_raw_waits() && !kpe_input_waits()) {
            if (const auto words = editor_.take_list(); !words.empty()) show_words(words);
            if (!paste_) draw();
            kpe_flush();
            const Waited waited = wait_for_more();
            if (waited == Waited::TimeUp)
                while (const auto key = decoder_.key(/*no_more=*/true)) take_key(*key);
            if (waited != Waited::Input) continue;
        }
        if (!read_more()) return std::nullopt;  // the terminal has gone: what is half typed is no line
    }
    show_finished();
    return editor_.line();
}

// What the terminal has to be for this: one that shows what is typed, line by line, and can go back on its row.
bool can_edit(termios& usual) {
    if (!terminal_at_both_ends() || tcgetattr(STDIN_FILENO, &usual) != 0) return false;
    const tcflag_t shows_lines = ICANON | ECHO;
    return (usual.c_lflag & shows_lines) == shows_lines && !kpe_line_waits() && kpe_can_edit_lines();
}

}  // namespace

std::optional<std::string> kpe_read_typed(std::string_view prompt, const LineRequest& request) {
    kpe_print(prompt);
    if (terminal_at_both_ends() && !kpe_knows_terminal())
        kpe_flush();  // to look for its entry takes longer than to show the prompt
    termios usual{};
    std::optional<std::string> line = can_edit(usual) ? TypedLine(prompt, request, usual).read() : kpe_read_line();
    if (line && request.history && terminal_at_both_ends()) request.history->add(*line);
    return line;
}
