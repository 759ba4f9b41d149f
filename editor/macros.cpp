#include <algorithm>

#include "editor/kpe.h"
#include "editor/line_reader.h"
#include "editor/on_screen.h"
#include "system/ascii.h"
#include "system/nested.h"
#include "system/report.h"

namespace {

// One pair of quotes of either kind around a macro's commands.
std::string_view without_outer_quotes(std::string_view body) {
    const bool quoted =
        body.size() >= 2 && body.front() == body.back() && (body.front() == '"' || body.front() == '\'');
    return quoted ? body.substr(1, body.size() - 2) : body;
}

// A macro among those that run; leave() takes it out early.
class RunningMacro {
public:
    RunningMacro(std::vector<std::string>& stack, const std::string& name) : stack_(&stack) { stack.push_back(name); }
    ~RunningMacro() { leave(); }
    RunningMacro(const RunningMacro&) = delete;
    RunningMacro& operator=(const RunningMacro&) = delete;
    void leave() {
        if (stack_ != nullptr) stack_->pop_back();
        stack_ = nullptr;
    }

private:
    std::vector<std::string>* stack_;
};

}  // namespace

std::vector<std::string> Editor::split_macro_commands(const std::string& text) {
    std::vector<std::string> commands;
    std::string piece;
    const auto finish = [&] {
        piece = trim(piece);
        if (!piece.empty()) commands.push_back(piece);
        piece.clear();
    };
    char quote = 0;
    for (const char c : text) {
        if (quote == 0 && (c == ';' || c == '\n')) {
            finish();
            continue;
        }
        if (c == quote) {
            quote = 0;
        } else if (quote == 0 && (c == '"' || c == '\'')) {
            quote = c;
        }
        piece += c;
    }
    finish();
    return commands;
}

std::string Editor::join_lines_as_text(const std::vector<std::string>& lines) {
    std::string text;
    for (size_t i = 0; i < lines.size(); ++i) {
        if (i > 0) text += '\n';
        text += lines[i];
    }
    return text;
}

std::vector<std::string> Editor::read_macro_commands(const std::string& name, bool report) {
    kpe_say(report, "Enter macro commands for " + name + ". End with END DEFINE or a blank line.");
    const LineModePause pause;
    std::vector<std::string> commands;
    for (;;) {
        auto line = kpe_read_typed(report && policy_.shows_prompts ? "_" : "", {});
        if (!line) break;
        const std::string word = upper(trim(*line));
        if (word.empty() || word == "END DEFINE" || word == "END") break;
        commands.push_back(std::move(*line));
        if (!recorder_.is_on()) continue;
        TextBuffer ahead;  // with the lines so far, so that those are not lost by a crash
        ahead.set_text(join_lines_as_text(commands));
        record_ahead(name, ahead);
    }
    if (report) kpe_end_line();
    return commands;
}

void Editor::define_macro_command(const std::string& args, bool report) {
    const std::string a = trim(args);
    if (a.empty()) {
        kpe_complain(report, "DEFINE MACRO syntax: DEFINE MACRO name AS \"command; command\"");
        return;
    }
    const size_t as = upper(a).find(" AS ");
    const std::string name = normalize_buffer_name(a.substr(0, as));
    if (name.empty() || name == "MAIN" || name == "PASTE") {
        kpe_complain(report, "Invalid macro name");
        return;
    }
    const std::vector<std::string> commands =
        as == std::string::npos
            ? read_macro_commands(name, report)
            : split_macro_commands(std::string(without_outer_quotes(kpe_trim(std::string_view(a).substr(as + 4)))));
    if (commands.empty()) {
        kpe_complain(report, "Macro has no commands");
        return;
    }
    TextBuffer text;
    text.set_text(join_lines_as_text(commands));
    buffers_[name] = text;
    show_stored_if_current(name);
    if (as != std::string::npos) macro_texts_[name] = text.lines();
    if (as != std::string::npos && command_file_depth_ > 0) note_on_disk(buffers_[name]);  // in the command file
    macro_names_[name] = true;
    kpe_say(report, "macro " + name + " defined with " + kpe_counted(commands.size(), "command"));
}

bool Editor::try_execute_macro(const std::string& name, bool report) {
    const std::string n = normalize_buffer_name(name);
    if (n.empty() || !macro_names_.contains(n)) return false;
    if (std::find(running_macros_.begin(), running_macros_.end(), n) != running_macros_.end()) {
        kpe_complain(report, "Recursive macro invocation: " + n);
        return true;
    }
    if (running_macros_.size() >= KPE_MOST_NESTED) {
        kpe_complain(report, "Macros nested too deeply: " + n);
        return true;
    }
    save_current_buffer_state();
    const auto macro = buffers_.find(n);
    if (macro == buffers_.end()) {
        kpe_complain(report, "Macro buffer missing: " + n);
        return true;
    }
    RunningMacro running(running_macros_, n);
    const LineStore lines = macro->second.lines();  // the commands may edit the macro's own buffer
    for (size_t row = 0; row < lines.size(); ++row) {
        const std::string command(kpe_trim(lines.view(row)));
        if (is_comment_or_blank(command)) continue;
        if (verify_ && report) kpe_say(true, "[" + n + "] " + command);
        const CommandResult result = execute_command(command, report);
        if (result == CommandResult::Continue || result == CommandResult::Error) continue;
        running.leave();
        handle_command_result(result, /*exit_allowed=*/true);
        return true;
    }
    return true;
}

void Editor::show_macros(const std::string& name, bool report) {
    if (!report) return;
    save_current_buffer_state();
    const std::string n = normalize_buffer_name(name);
    bool shown = false;
    for (const auto& entry : macro_names_) {
        const auto macro = buffers_.find(entry.first);
        if ((!n.empty() && entry.first != n) || macro == buffers_.end()) continue;
        shown = true;
        const TextBuffer& text = macro->second;
        kpe_say(true, "MACRO " + entry.first + " (" + kpe_counted(text.line_count(), "command") + ")");
        for (size_t row = 0; row < text.line_count(); ++row) {
            kpe_say(true, "  " + std::to_string(row + 1) + ": " + std::string(text.view(row)));
        }
    }
    if (shown) return;
    if (n.empty()) {
        kpe_say(true, "No macros defined");
    } else {
        kpe_complain(true, "No such macro: " + n);
    }
}
