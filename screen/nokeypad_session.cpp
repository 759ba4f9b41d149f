#include <string>

#include "editor/kpe.h"
#include "editor/on_screen.h"
#include "screen/curses_session.h"

// The sequences of the keypad are not taught to curses here: this is for terminals without one.
void Editor::nokeypad_mode() {
    if (!may_enter_screen()) return;
    run_on_screen(&Editor::nokeypad_loop);
    message_ = "Command mode";
}

void Editor::nokeypad_loop() {
    message_ = "Nokeypad — type commands (HELP NOKEYPAD); EX or Ctrl/Z to leave";
    for (bool done = false; !done && !input_ended_;) {
        draw_screen();
        const std::string line = read_prompt("Nokeypad: ", nullptr, /*leaves=*/true);
        if (line == "\032") return;
        if (line.empty()) continue;
        {
            const InterruptKey interrupt;
            done = execute_nokeypad_string(line, /*echo_errors=*/false);
            check_abort(/*report=*/false);
        }
        clamp_cursor();
        snap_cursor();
        adjust_view();
    }
}
