#include <curses.h>
#include <new>

#include "editor/kpe.h"
#include "screen/curses_session.h"
#include "screen/key_reader.h"
#include "screen/n3_kpe_keymap.h"
#include "system/input.h"
#include "system/nested.h"
#include "system/report.h"
#include "system/terminal.h"

void Editor::screen_mode() {
    if (!may_enter_screen()) return;
    append_journal_line("CHANGE");
    run_on_screen(&Editor::screen_loop);
    append_journal_line("! left CHANGE");
}

bool Editor::may_enter_screen() {
    if (screen_depth_ >= KPE_MOST_NESTED) {
        set_error("Screen mode nested too deeply");
        return false;
    }
    const auto obstacle = CursesSession::obstacle();
    if (obstacle) kpe_complain(true, *obstacle);
    return !obstacle;
}

void Editor::run_on_screen(void (Editor::*loop)()) {
    const Nested run(screen_depth_);
    const InputFrom keyboard(InputFrom::Standard);  // also where a journal is replayed
    try {
        const CursesSession session;
        if (!session.started()) throw std::bad_alloc();  // nothing else is missing where no obstacle was found
        (this->*loop)();
        if (input_ended_) keep_texts();  // before anything waits for the terminal
    } catch (const std::bad_alloc&) {
        if (g_curses_active) throw;  // the session around this one shows it
        kpe_complain(true, "Not enough memory for the screen");
    }
}

void Editor::screen_loop() {
    kpe_register_keypad(keypad_mode_ == "PC");
    snap_cursor();
    for (bool done = false; !done && !input_ended_;) {
        screen_stale_ = true;
        tell_unsaved_change();
        tell_lost_bytes();
        const int key = read_key();
        if (input_ended_) return;
        if (debug_keys_) last_key_debug_ = key_debug_name(key);
        try {
            done = handle_screen_key(key);
        } catch (const std::bad_alloc&) {
            take_back_unit();
            set_error("Not enough memory");  // the text before the key is all there
        }
        unit_open_ = false;
        clamp_cursor();
        snap_cursor();
        adjust_view();
    }
}

int Editor::read_key(const std::function<void(bool anew)>& draw) {
    if (input_ended_) return ERR;
    record_changes();
    const auto draw_first = [&](bool anew) {
        draw(anew);
        free_dropped_states();
    };
    int key = 0;
    do {
        key = kpe_read_key(keypad_mode_ == "PC", draw_first);
    } while (key == KPE_NUM_LOCK && num_lock_ != "GOLD");
    if (key == ERR) input_ended_ = true;
    return key == KPE_NUM_LOCK ? KEY_F(1) : key;
}
