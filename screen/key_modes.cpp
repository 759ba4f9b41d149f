#include "screen/key_modes.h"

#include <curses.h>
#include <string>
#include <string_view>
#include <term.h>

#include "buffer/characters.h"
#include "screen/curses_session.h"
#include "system/report.h"
#include "system/terminal.h"

namespace {

using Clock = std::chrono::steady_clock;

// A paste is marked (2004), and the keypad sends sequences of its own whatever Num Lock says (1035 off).
constexpr std::string_view MODES_ON = "\033[?2004h\033[?1035l", MODES_OFF = "\033[?2004l\033[?1035h";
// Which protocol it uses, whether it joins clusters, and its device attributes, which every terminal answers.
constexpr std::string_view QUESTIONS = "\033[?u\033[?2027$p\033[c";
// All keys as sequences (1 and 8), with the text that they type (16), and with what they type where the letters are
// Latin (4).
constexpr std::string_view PROTOCOL_ON = "\033[>29u", PROTOCOL_OFF = "\033[<u";
constexpr std::string_view PROTOCOL_PAUSED = "\033[=0;1u", PROTOCOL_CONTINUED = "\033[=29;1u";

bool g_modes_on = false, g_protocol_used = false, g_asked = false;
Clock::time_point g_asked_at;
TerminalAnswers g_answers;

// The screen that a terminal keeps for full-screen programs has a state of the protocol for itself: it is set while
// that screen is shown.
void use_protocol() {
    kpe_send_to_terminal(PROTOCOL_ON);
    g_protocol_used = true;
}

}  // namespace

void kpe_key_modes_on() {
    kpe_send_to_terminal(MODES_ON);
    g_modes_on = true;
    if (g_answers.protocol) use_protocol();
    if (!g_asked) {
        kpe_send_to_terminal(QUESTIONS);
        g_asked = true;
        g_asked_at = Clock::now();
    }
    kpe_flush();
}

void kpe_key_modes_off() {
    if (!g_modes_on) return;
    if (g_protocol_used) kpe_send_to_terminal(PROTOCOL_OFF);
    kpe_send_to_terminal(MODES_OFF);
    kpe_flush();
    g_modes_on = g_protocol_used = false;
}

void kpe_prepare_leaving() {
    std::string leaving(g_answers.protocol ? PROTOCOL_OFF : "");
    leaving += MODES_OFF;
    if (exit_ca_mode) leaving += exit_ca_mode;
    kpe_set_leaving_bytes(leaving + "\033>");
}

void kpe_note_answers(const TerminalAnswers& answers) {
    if (answers == g_answers) return;
    const bool begins = answers.protocol && !g_answers.protocol;
    if (answers.joins_clusters != g_answers.joins_clusters) {
        kpe_join_clusters(answers.joins_clusters);
        kpe_repaint();
    }
    g_answers = answers;
    if (!begins || !g_modes_on) return;
    kpe_prepare_leaving();
    use_protocol();
    kpe_flush();
}

bool kpe_terminal_owes_answer(std::chrono::milliseconds asked_within) {
    return g_asked && !g_answers.attributes && Clock::now() - g_asked_at < asked_within;
}

bool kpe_terminal_knows_protocol() { return g_answers.protocol; }

void kpe_pause_protocol() {
    if (!g_protocol_used) return;
    kpe_send_to_terminal(PROTOCOL_PAUSED);
    kpe_flush();
}

void kpe_continue_protocol() {
    if (g_protocol_used) kpe_send_to_terminal(PROTOCOL_CONTINUED);
}
