// kpe-keys: shows what the terminal sends for each key and what kpe does with it, and writes the lines for the startup
// file that the terminal needs.

#include <algorithm>
#include <curses.h>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <unistd.h>
#include <utility>
#include <vector>

#include "editor/on_screen.h"
#include "screen/curses_session.h"
#include "screen/key_layers.h"
#include "screen/key_modes.h"
#include "screen/key_reader.h"
#include "screen/shown_rows.h"
#include "system/interrupts.h"
#include "system/process.h"
#include "system/report.h"
#include "system/version.h"

namespace {

constexpr std::string_view HELP[] = {
    "usage: kpe-keys",
    "",
    "Shows for each key that is pressed its bytes, its name, and what it does in the",
    "screen mode of kpe. At the end it writes the lines for the startup file that this",
    "terminal needs. Press each key of the numeric keypad, with Num Lock on and off,",
    "then Home, an arrow key with Ctrl, and Alt/u. Ctrl/C ends it, and so does a key",
    "that is pressed three times in a row.",
    "",
    "  --help      this text",
    "  --version   the version",
};

constexpr int PRESSES_TO_END = 3;

// --- What the keys tell of the terminal ---

enum class Layer { Gold, Digits, Operators, Editing, Alt, Paste, NumLock, Count };

class Terminal {
public:
    // Notes which layers a key shows to work, and returns those that were not known before.
    std::vector<Layer> note(int key) {
        pressed_ = true;
        std::vector<Layer> found;
        for (const Layer layer :
             {Layer::Gold, Layer::Digits, Layer::Operators, Layer::Editing, Layer::Alt, Layer::Paste, Layer::NumLock}) {
            if (!shows(key, layer) || has(layer)) continue;
            seen_[static_cast<size_t>(layer)] = true;
            found.push_back(layer);
        }
        return found;
    }
    bool has(Layer layer) const { return seen_[static_cast<size_t>(layer)]; }
    bool has_alt() const { return has(Layer::Alt) || kpe_terminal_knows_protocol(); }  // with the protocol Alt works

    // For the startup file: commands, and comments that begin with "!".
    std::vector<std::string> startup_lines() const {
        std::vector<std::string> lines;
        if (!pressed_) return lines;
        if (!has(Layer::Digits) && has(Layer::Editing)) {
            lines.emplace_back("! No digit of the keypad has come, but keys such as Home:");
            lines.emplace_back("SET KEYPAD EDITING");
        }
        if (!has(Layer::Digits) && !has(Layer::Editing) && !has_alt()) {
            lines.emplace_back("! Neither the keypad nor Alt has come, so letters after GOLD:");
            for (const char* const line : GOLD_LETTERS) lines.emplace_back(line);
        }
        if (has(Layer::NumLock)) {
            lines.emplace_back("! This terminal reports Num Lock, so it can be GOLD:");
            lines.emplace_back("SET NUMLOCK GOLD");
        }
        return lines;
    }

private:
    static constexpr const char* GOLD_LETTERS[] = {
        "DEFINE KEY GOLD S AS \"SELECT\"", "DEFINE KEY GOLD X AS \"CUT\"",   "DEFINE KEY GOLD V AS \"PASTE\"",
        "DEFINE KEY GOLD W AS \"DEL W\"",  "DEFINE KEY GOLD U AS \"UND W\"", "DEFINE KEY GOLD R AS \"RESET\"",
    };

    static bool shows(int key, Layer layer) {
        switch (layer) {
            case Layer::Gold:
                return key == KEY_F(1);
            case Layer::Digits:  // some terminals send 5 though they send no other digit
                return key >= KPE_KP0 && key <= KPE_KP9 && key != KPE_KP5;
            case Layer::Operators:
                return key >= KPE_KP_MINUS && key <= KPE_KP_ENTER;
            case Layer::Editing:
                return kpe_in_layer(kpe_editing_layer(), key) != 0;
            case Layer::Alt:
                return kpe_alt_character(key) != '\0';
            case Layer::Paste:
                return key == KPE_PASTE;
            case Layer::NumLock:
                return key == KPE_NUM_LOCK;
            case Layer::Count:
                break;
        }
        return false;
    }

    bool pressed_ = false;
    bool seen_[static_cast<size_t>(Layer::Count)] = {};
};

// --- What is shown of a key ---

// As in "Esc O w": controls as ^X, bytes of eight bits as hexadecimal numbers.
std::string readable(std::string_view bytes) {
    constexpr size_t MOST_BYTES = 24;
    constexpr std::string_view DIGITS = "0123456789ABCDEF";
    std::string text;
    for (const char c : bytes.substr(0, MOST_BYTES)) {
        const auto byte = static_cast<unsigned char>(c);
        if (!text.empty()) text += ' ';
        if (c == KPE_ESCAPE) {
            text += "Esc";
        } else if (byte < ' ' || byte == KPE_DELETE) {
            text += {'^', static_cast<char>(byte ^ 0x40)};
        } else if (byte == ' ') {
            text += "Space";
        } else if (byte > KPE_DELETE) {
            text += {DIGITS[byte >> 4], DIGITS[byte & 15]};
        } else {
            text += c;
        }
    }
    return bytes.size() > MOST_BYTES ? text + " ..." : text;
}

std::string functions_of(int key) {
    const std::string plain = kpe_function_name(key, /*gold=*/false), gold = gold_function_name(key);
    return gold.empty() ? plain : plain + (plain.empty() ? "" : ", ") + "after GOLD " + gold;
}

// "Alt/s: save, Alt/x: save and leave, ..."
std::string leaving_keys() {
    std::string text;
    for (const LayerKey& row : kpe_leaving_layer())
        text += (text.empty() ? "" : ", ") + kpe_key_name(row.key) + ": " + functions_of(row.stands_for);
    return text;
}

std::string what_it_does(int key) {
    if (key == KPE_PASTE) return "goes into the text as it is";
    if (key == KPE_NUM_LOCK) return "GOLD after SET NUMLOCK GOLD";
    if (const int leaving = kpe_in_layer(kpe_leaving_layer(), key)) return "in kpe-editor: " + functions_of(leaving);
    const int meant = kpe_in_layer(kpe_alt_layer(), key);
    const int plain = meant ? meant : kpe_alt_character(key) ? 0 : kpe_plain_key(key);
    std::string text = functions_of(plain);
    if (plain != key && !text.empty()) text = "as " + kpe_key_name(plain) + ": " + text;
    if (const int editing = kpe_in_layer(kpe_editing_layer(), key))
        text += "; after SET KEYPAD EDITING " + kpe_key_name(editing) + ": " + functions_of(editing);
    const bool typed = kpe_is_character(key) || (key >= ' ' && key <= '~');
    if (typed) return text.empty() ? "goes into the text" : "goes into the text, " + text;
    if (!text.empty()) return text;
    const std::string id = kpe_key_id(key);
    return id.empty() ? "no function" : "free for DEFINE KEY: " + id;
}

std::string name_of(int key) { return key >= KEY_F(5) && key <= KEY_F(20) ? kpe_key_id(key) : kpe_key_name(key); }

const char* tells(Layer layer) {
    switch (layer) {
        case Layer::Gold:
            return "GOLD works.";
        case Layer::Digits:
            return "The numeric keypad works.";
        case Layer::Alt:
            return "Alt works, so the letters can be the keypad.";
        case Layer::Paste:
            return "Pasted text is known as such.";
        default:
            return nullptr;
    }
}

// --- The screen: lines, of which the last ones are shown ---

class Log {
public:
    void add(std::string_view line) {
        lines_.emplace_back(line);
        if (lines_.size() > MOST_LINES) lines_.erase(lines_.begin());
    }
    void paint() const {
        const ScreenSize screen = kpe_screen_size();
        const std::vector<std::string> rows = wrapped(static_cast<size_t>(std::max(screen.cols - 1, 1)));
        const size_t height = static_cast<size_t>(screen.rows);
        const size_t hidden = rows.size() - std::min(rows.size(), height);
        g_shown_rows.begin(screen.rows, screen.cols);
        for (size_t i = 0; i < height; ++i) {
            const std::string_view text = hidden + i < rows.size() ? rows[hidden + i] : std::string_view();
            g_shown_rows.show(static_cast<int>(i), {{}, text});
        }
        g_shown_rows.paint(static_cast<int>(std::min(rows.size(), height)) - 1, 0);
    }

private:
    static constexpr size_t MOST_LINES = 1000;

    // Broken at blanks where there are any.
    std::vector<std::string> wrapped(size_t width) const {
        std::vector<std::string> rows;
        for (std::string_view line : lines_) {
            while (line.size() > width) {
                const size_t blank = line.rfind(' ', width);
                const size_t size = blank == line.npos || blank == 0 ? width : blank;
                rows.emplace_back(line.substr(0, size));
                line.remove_prefix(size + (size == blank ? 1 : 0));
            }
            rows.emplace_back(line);
        }
        return rows;
    }

    std::vector<std::string> lines_;
};

// --- The session ---

// Whether the bytes are what a terminal answers when it is asked about itself.
bool is_answer(std::string_view bytes) { return bytes.starts_with("\033[?"); }

std::string protocol_line() {
    return std::string("Kitty's keyboard protocol: ") + (kpe_terminal_knows_protocol() ? "yes" : "no");
}

// Reads keys until the user ends it.
void show_keys(Terminal& terminal) {
    Log log;
    log.add("kpe-keys " + kpe_version_string());
    log.add("Press keys: the keypad, Home, Ctrl and an arrow, Alt/u. Ctrl/C ends, or a key pressed three times.");
    KeyRecord record;
    record.dropped = [&] {
        const std::string bytes = std::exchange(record.bytes, {});
        if (!is_answer(bytes)) {
            log.add(readable(bytes) + " | no key that kpe knows");
        } else if (bytes.ends_with('c')) {  // the last of its answers
            log.add(protocol_line());
        }
        log.paint();
    };
    kpe_record_keys(&record);
    int last = ERR;
    for (int presses = 0; presses < PRESSES_TO_END;) {
        const int key = kpe_read_key(/*pc_keypad=*/false, [&](bool) { log.paint(); });
        if (key == ERR || key == kpe_ctrl('C')) break;
        if (key == KPE_PASTE) kpe_take_paste();
        presses = key == last ? presses + 1 : 1;
        last = key;
        log.add(readable(std::exchange(record.bytes, {})) + " | " + name_of(key) + " | " + what_it_does(key));
        for (const Layer layer : terminal.note(key)) {
            if (const char* const text = tells(layer)) log.add(text);
        }
    }
    kpe_record_keys(nullptr);
}

void print_result(const Terminal& terminal) {
    const auto say = [&](std::string_view what, Layer layer) {
        kpe_say(true, std::string(what) + (terminal.has(layer) ? "yes" : "not seen"));
    };
    kpe_say(true, protocol_line());
    say("GOLD (F1): ", Layer::Gold);
    say("Digits of the keypad: ", Layer::Digits);
    say("Its - , . and Enter: ", Layer::Operators);
    say("Alt: ", Layer::Alt);
    if (terminal.has_alt()) kpe_say(true, "In kpe-editor " + leaving_keys());
    say("Bracketed paste: ", Layer::Paste);
    const std::vector<std::string> lines = terminal.startup_lines();
    kpe_say(true, lines.empty() ? "Nothing has to be set." : "For the startup file, KPE.INI in the home directory:");
    for (const std::string& line : lines) kpe_say(true, line);
}

int complain(std::string_view what) {
    kpe_warn("kpe-keys: " + std::string(what));
    return 2;
}

int run() {
    if (isatty(STDIN_FILENO) == 0 || isatty(STDOUT_FILENO) == 0) return complain("this needs a terminal");
    if (const auto obstacle = CursesSession::obstacle()) return complain(*obstacle);
    kpe_install_signal_handlers();
    Terminal terminal;
    try {
        const CursesSession session;
        if (!session.started()) throw std::bad_alloc();
        kpe_register_keypad(/*pc_keypad=*/false);
        show_keys(terminal);
    } catch (const std::bad_alloc&) {
        return complain("not enough memory");
    }
    if (g_kpe_end_signal) kpe_end_by_signal();
    print_result(terminal);
    kpe_flush();
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    const std::string_view option = argc == 2 ? argv[1] : "";
    if (option == "--version") {
        kpe_say(true, "kpe-keys " + kpe_version_string());
    } else if (option == "--help") {
        for (const std::string_view line : HELP) kpe_say(true, line);
    } else if (argc > 1) {
        for (const std::string_view line : HELP) kpe_warn(line);
        return 2;
    } else {
        return run();
    }
    kpe_flush();
    return 0;
}
