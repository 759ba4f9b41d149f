#include "buffer/characters.h"
#include "editor/kpe.h"
#include "editor/on_screen.h"

void Editor::subs_keypad() {
    const size_t length = !last_search_.empty() && on_last_match()
                              ? buffer_.match_len_at(last_search_, cursor_row_, match_col_, search_exact_)
                              : 0;
    if (length == 0) {
        set_error("No select range active");
        return;
    }
    const InterruptKey interrupt;
    begin_undo_unit();
    const std::string text = paste_text_content();
    const std::string_view line = buffer_.view(cursor_row_);
    const size_t end = kpe_character_border(line, match_col_ + length);
    snap_cursor();
    buffer_.replace_in_line(cursor_row_, cursor_col_, end - cursor_col_, text);
    cursor_col_ += text.size();
    on_match_ = false;
    if (find_next(direction_)) message_ = "Substituted";
    check_abort(/*report=*/false);
}

void Editor::find_again_key() {
    const InterruptKey interrupt;
    execute_command("FNDNXT", /*report=*/false);
}
