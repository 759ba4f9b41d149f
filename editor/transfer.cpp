#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "buffer/line_cutter.h"
#include "buffer/write_rows.h"
#include "editor/kpe.h"
#include "editor/line_reader.h"
#include "editor/on_screen.h"
#include "editor/reasons.h"
#include "files/file_handle.h"
#include "files/file_reader.h"
#include "files/file_writer.h"
#include "system/ascii.h"
#include "system/input.h"
#include "system/interrupts.h"
#include "system/nested.h"
#include "system/process.h"
#include "system/report.h"
#include "system/terminal.h"

namespace {

constexpr char CTRL_Z = 26;

// What system() does, but with signals in the child as they are for any other command. The command's wait
// status, or -1 if it could not be run.
int run_in_shell(const std::string& command) {
    kpe_flush();
    struct sigaction ignore = {}, usual = {}, old_int = {}, old_quit = {}, old_child = {};
    ignore.sa_handler = SIG_IGN;
    usual.sa_handler = SIG_DFL;  // where SIGCHLD is ignored, nobody is told how a child ended
    sigemptyset(&ignore.sa_mask);
    sigemptyset(&usual.sa_mask);
    sigaction(SIGINT, &ignore, &old_int);
    sigaction(SIGQUIT, &ignore, &old_quit);
    sigaction(SIGCHLD, &usual, &old_child);
    const pid_t child = fork();
    if (child == 0) {
        sigaction(SIGINT, &old_int, nullptr);
        sigaction(SIGQUIT, &old_quit, nullptr);
        kpe_reset_signals_in_child();
        execl("/bin/sh", "sh", "-c", command.c_str(), static_cast<char*>(nullptr));
        _exit(127);
    }
    int status = -1;
    if (child > 0) {
        while (waitpid(child, &status, 0) < 0) {
            if (errno == EINTR && !g_kpe_end_signal) continue;
            status = -1;
            break;
        }
    }
    sigaction(SIGINT, &old_int, nullptr);
    sigaction(SIGQUIT, &old_quit, nullptr);
    sigaction(SIGCHLD, &old_child, nullptr);
    return status;
}

// One line number of a buffer that is not being edited, as a row.
std::optional<size_t> numbered_row(std::string_view text, size_t rows) {
    text = kpe_trim(text);
    if (!kpe_all_digits(text) || rows == 0) return std::nullopt;
    const auto number = kpe_stoul(text);
    if (!number || *number == 0) return std::nullopt;
    return std::min(*number, rows) - 1;
}

// The range of a buffer that is not being edited: there only line numbers count. The text is in upper case.
std::optional<Editor::LineRange> numbered_range(const std::string& text, size_t rows) {
    if (text == "WHOLE" || text == "ALL") {
        if (rows == 0) return std::nullopt;
        return Editor::LineRange{0, rows - 1};
    }
    size_t at = text.find(" THRU "), size = 6;
    if (at == std::string::npos) at = text.find(':'), size = 1;
    const bool pair = at != std::string::npos;
    const auto first = numbered_row(text.substr(0, at), rows);
    const auto last = pair ? numbered_row(text.substr(at + size), rows) : first;
    if (!first || !last) return std::nullopt;
    return Editor::LineRange{std::min(*first, *last), std::max(*first, *last)};
}

// What is written by WRITE: "file [range] [BUFFER name]".
struct WriteRequest {
    std::string file, selection;
    std::optional<std::string> buffer;
};

WriteRequest write_request(const std::string& args, const std::string& upper_args) {
    const auto [file, rest] = kpe_first_word(args);
    WriteRequest request{std::string(file), std::string(rest), std::nullopt};
    const size_t rest_at = rest.empty() ? args.size() : static_cast<size_t>(rest.data() - args.data());
    const size_t keyword = upper_args.find("BUFFER ", rest_at);
    if (keyword == std::string::npos) return request;
    const std::string_view before = std::string_view(args).substr(rest_at, keyword - rest_at);
    const auto [name, after] = kpe_first_word(std::string_view(args).substr(keyword + 7));
    request.buffer = std::string(name);
    request.selection = std::string(kpe_trim(std::string(before) + " " + std::string(after)));
    return request;
}

bool ends_insertion(std::string_view line) {
    if (line == "^Z" || line == ".") return true;
    return line.find(CTRL_Z) != std::string_view::npos &&
           line.find_first_not_of(std::string_view("\x1a \t", 3)) == std::string_view::npos;
}

}  // namespace

void Editor::print_command(const std::string& args, bool report) {
    std::array<char, 32> path{"/tmp/kpe_print_XXXXXX"};
    FileHandle file(mkostemp(path.data(), O_CLOEXEC));
    if (!file.is_open()) {
        why_unwritten_ = kpe_why_unwritten(errno, path.data());
        kpe_complain(report, "Cannot create temp file");
        tell_why_unwritten(report);
        return;
    }
    const std::string selection = trim(args);
    std::optional<LineRange> range = LineRange{0, buffer_.line_count() - 1};
    if (!selection.empty()) range = parse_line_range(selection);
    if (!range) {
        kpe_complain(report, "Invalid range: " + selection);
        return;  // the file stays, as after every end before the spooler
    }
    const bool written = kpe_write_rows(file.fd(), buffer_.share_range(range->first, range->last));
    if (!file.close() || !written) {
        std::remove(path.data());
        kpe_complain(report, "Print failed");
        return;
    }
    const std::string name(path.data());
    const int status = run_in_shell("lpr " + name + " 2>/dev/null || lp " + name + " 2>/dev/null");
    std::remove(path.data());
    if (status == 0) {
        kpe_say(report, "Sent to printer");
    } else {
        kpe_complain(report, "Print failed");
    }
}

void Editor::write_command(const std::string& args, bool report) {
    const WriteRequest request = write_request(args, upper(args));
    const std::string file = strip_optional_quotes(request.file);
    if (file.empty()) {
        kpe_complain(report, "WRITE requires a file name");
        return;
    }
    // Only a buffer that is not named is searched with the full range syntax and the sticky range.
    TextBuffer* source = &buffer_;
    if (request.buffer) {
        TextBuffer& stored = named_buffer(*request.buffer);
        if (&stored != &stored_buffer(current_buffer_name_)) source = &stored;
    }
    std::optional<LineRange> range;
    if (request.selection.empty()) {
        if (!request.buffer) range = sticky_range_;
    } else {
        range = request.buffer
                    ? numbered_range(upper(strip_qualifiers_for_range(request.selection)), source->line_count())
                    : parse_line_range(request.selection);
        if (!range) {
            kpe_complain(report, "Invalid range: " + request.selection);
            return;
        }
    }
    const AbortGuard guard;  // Ctrl/C ends it, also the waiting for somebody who reads a FIFO
    std::string path;
    const Nested interruptible(interruptible_writes_);
    const bool written =
        range ? save_lines(source->share_range(range->first, range->last), {file_form_.returns}, file, path)
              : save_buffer_to_path(*source, file, path);
    if (written) {
        kpe_say(report, path + " written");
    } else if (!check_abort(report)) {
        kpe_complain(report, "Unable to write " + path);
        tell_why_unwritten(report);
    }
}

void Editor::include_file_command(const std::string& args, bool report) {
    using End = FileContent::End;
    const std::string name = strip_optional_quotes(trim(args));
    const auto tell = [&](const std::string& line) { report ? kpe_say(true, line) : kpe_warn(line); };
    const AbortGuard guard;
    note_used_file(name);
    LineCutter cutter(LineStore::Returns::Drop);
    const FileContent content = kpe_read_file(name, &g_kpe_abort_requested, &cutter);
    if (check_abort(report)) return;
    if (content.end == End::Missing || content.end == End::Refused) {
        tell("Include file does not exist");
        tell("File name:" + name);
        tell("%RMS-E-FNF, file not found");
        const bool there = content.end == End::Refused;
        if (there && (report || g_curses_active)) tell_user("?" + kpe_why_unread(content.error, name));
        return;
    }
    if (content.error == EISDIR && (report || g_curses_active)) tell_user("?" + kpe_why_unread(EISDIR, name));
    if (content.too_large && (report || g_curses_active)) tell_user("?" + kpe_too_large(*content.too_large));
    const LineStore lines = cutter.finish(content);
    record_changes();
    if (content.end == End::Whole) record_source(name, content.file, lines);
    buffer_.insert_lines(cursor_row_, lines);
    record_changes();
    cursor_row_ += lines.size();
    if (content.end == End::Broken) tell("?Include file could not be read to its end: " + name);
}

void Editor::insert_multiline(bool report) {
    const LineModePause pause;
    const CtrlZAsInput ctrl_z;
    std::vector<std::string> lines;
    TextBuffer ahead = buffer_;  // with the lines so far, so that those are not lost by a crash
    size_t row = cursor_row_, col = cursor_col_;
    const LineRequest request = {.kind = LineRequest::Kind::Inserted};
    std::string_view prompt = "";  // none at first
    while (auto line = kpe_read_typed(prompt, request)) {
        if (line->ends_with('\r')) line->pop_back();
        if (ends_insertion(*line)) break;
        ahead.insert_text(row, col, apply_case_mode((lines.empty() ? "" : "\n") + *line));
        record_ahead(current_buffer_name_, ahead);
        lines.push_back(std::move(*line));
        if (report && policy_.shows_prompts) prompt = "_";
    }
    paste_text(join_lines_as_text(lines));
    message_ = "Inserted";
}
