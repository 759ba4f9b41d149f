#include <algorithm>

#include "editor/kpe.h"
#include "system/report.h"

std::string Editor::normalize_buffer_name(std::string name) {
    name = trim(name);
    if (name.starts_with('=')) name.erase(0, 1);
    return upper(trim(strip_optional_quotes(name)));
}

void Editor::save_current_buffer_state() {
    if (!current_buffer_name_.empty()) buffers_[current_buffer_name_] = buffer_;
}

TextBuffer& Editor::named_buffer(const std::string& name) {
    const std::string n = normalize_buffer_name(name);
    return stored_buffer(n.empty() ? "MAIN" : n);
}

TextBuffer& Editor::stored_buffer(const std::string& n) {
    TextBuffer& stored = buffers_[n];
    if (n == "MAIN") stored.set_filename(filename_);
    return stored;
}

void Editor::find_buffer(const std::string& name, bool report) {
    const std::string n = normalize_buffer_name(name);
    if (n.empty()) {
        kpe_complain(report, "Missing buffer name");
        return;
    }
    save_current_buffer_state();
    buffer_ = stored_buffer(n);
    current_buffer_name_ = n;
    cursor_row_ = cursor_col_ = top_line_ = 0;
    clear_select();
    message_ = "Buffer " + n;
    kpe_say(report, "=" + n + " " + std::to_string(buffer_.line_count()) + " lines");
}

std::string Editor::paste_text_content() {
    save_current_buffer_state();
    return stored_buffer("PASTE").text();
}

void Editor::set_paste_text(const std::string& text) {
    TextBuffer& paste = stored_buffer("PASTE");
    paste.set_text(text);
    show_stored_if_current("PASTE");
}

void Editor::append_paste_text(const std::string& text) {
    if (!text.empty()) set_paste_text(paste_text_content() + text);
}

void Editor::show_stored_if_current(const std::string& name) {
    if (name != current_buffer_name_) return;
    buffer_ = stored_buffer(name);
    clamp_cursor();
}

void Editor::show_buffers(bool report) {
    save_current_buffer_state();
    for (const auto& [name, text] : buffers_) {
        const char* const mark = name == current_buffer_name_ ? "= " : "  ";
        kpe_say(report, mark + name + " " + kpe_counted(text.line_count(), "line") + (text.modified() ? " *" : ""));
    }
}

void Editor::clear_buffer_command(const std::string& args, bool report) {
    std::string n = normalize_buffer_name(args);
    if (n.empty()) n = current_buffer_name_;
    if (n == "MAIN" || n == "PASTE") {
        stored_buffer(n).clear();
        if (n == current_buffer_name_) {
            buffer_ = stored_buffer(n);
            top_line_ = cursor_col_ = cursor_row_ = 0;
        }
        kpe_say(report, "Buffer " + n + " cleared");
        return;
    }
    // The switch comes first: it writes the current buffer back, and would bring a removed one back.
    if (n == current_buffer_name_) find_buffer("MAIN", /*report=*/false);
    buffers_.erase(n);
    macro_names_.erase(n);
    kpe_say(report, "Buffer " + n + " deleted");
}

void Editor::copy_move_command(const std::string& args, bool move, bool report) {
    const size_t to = upper(args).find(" TO ");
    if (to == std::string::npos) {
        kpe_complain(report, std::string("Syntax: ") + (move ? "MOVE" : "COPY") + " range TO =buffer");
        return;
    }
    const std::string range_text = trim(args.substr(0, to));
    const auto range = parse_line_range(range_text);
    if (!range) {
        kpe_complain(report, "Invalid range: " + range_text);
        return;
    }
    const std::string destination = normalize_buffer_name(args.substr(to + 4));
    if (destination.empty()) {
        kpe_complain(report, "Missing destination buffer");
        return;
    }
    const LineStore lines = buffer_.share_range(range->first, range->last);
    save_current_buffer_state();  // the destination may be the buffer that is being edited
    stored_buffer(destination).append_lines(lines);
    show_stored_if_current(destination);
    if (move) delete_range(*range);
    kpe_say(report, kpe_counted(lines.size(), "line") + (move ? " moved" : " copied") + " to =" + destination);
}
