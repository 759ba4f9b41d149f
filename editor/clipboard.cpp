#include <unistd.h>

#include "editor/kpe.h"
#include "system/report.h"

namespace {

// Terminals take no longer sequences, or cut them.
constexpr size_t MOST_BYTES = 1 << 20;

std::string base64(std::string_view text) {
    constexpr std::string_view DIGITS = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string encoded;
    encoded.reserve((text.size() + 2) / 3 * 4);
    for (size_t i = 0; i < text.size(); i += 3) {
        const std::string_view group = text.substr(i, 3);
        unsigned bits = 0;
        for (size_t k = 0; k < 3; ++k) bits = bits << 8 | (k < group.size() ? static_cast<unsigned char>(group[k]) : 0);
        for (size_t k = 0; k < 4; ++k) encoded += k <= group.size() ? DIGITS[bits >> (18 - 6 * k) & 63] : '=';
    }
    return encoded;
}

}  // namespace

bool Editor::send_to_clipboard(std::string_view text) {
    if (isatty(STDOUT_FILENO) == 0) return false;
    if (text.size() > MOST_BYTES) {
        tell_user("?Too long for the clipboard: at most 1 MB is sent");
        return false;
    }
    kpe_send_to_terminal("\033]52;c;" + base64(text) + "\033\\");
    return true;
}

// Where there is no terminal to ask, this is the COPY that it always was: one without a range.
void Editor::copy_to_clipboard(bool report) {
    if (isatty(STDOUT_FILENO) == 0) {
        copy_move_command("TO CLIPBOARD", /*move=*/false, report);
        return;
    }
    const auto span = active_select_span();
    const std::string text = span ? buffer_.text_in_span(span->r1, span->c1, span->r2, span->c2)
                                  : std::string(buffer_.view(cursor_row_)) + "\n";
    if (send_to_clipboard(text)) tell_user("Sent to the clipboard: " + kpe_counted(text.size(), "byte"));
}
