#include <cerrno>
#include <cstdlib>
#include <unistd.h>

#include "config/n3_rzconfig.h"
#include "editor/kpe.h"
#include "editor/reasons.h"
#include "files/state_directory.h"
#include "system/nested.h"
#include "system/process.h"
#include "system/report.h"
#include "system/terminal.h"

namespace {

constexpr int MAX_NESTING = 64;
// A file that runs itself twice would be refused some 2^64 times: after so many refusals the whole nest ends.
constexpr int MAX_REFUSALS = 64;
constexpr std::string_view VERSIONING_WORDS[] = {"SET VERSIONING", "SET-VERSIONING"};

}  // namespace

std::optional<std::string> Editor::resolve_command_file(const std::string& name) {
    if (name.empty()) return std::nullopt;
    const size_t slash = name.find_last_of("/\\");
    const std::string_view last = std::string_view(name).substr(slash == std::string::npos ? 0 : slash + 1);
    if (last.find('.') == last.npos) {
        for (const char* type : {".kpe", ".KPE"}) {
            if (file_exists(name + type)) return name + type;
        }
    }
    if (file_exists(name)) return name;
    return std::nullopt;
}

void Editor::tell_unreadable(const std::string& path) {
    if (access(path.c_str(), R_OK) != 0 && errno != ENOENT) tell_user("?" + kpe_why_unread(errno, path));
}

void Editor::tell_too_large(const TextBuffer& file) {
    if (file.too_large()) tell_user("?" + kpe_too_large(*file.too_large()));
}

void Editor::abort_missing_command_file(const std::string& name) {
    kpe_safe_endwin();
    kpe_say(true, "Command file does not exist");
    kpe_say(true, "File name:" + name);
    kpe_say(true, "%RMS-E-FNF, file not found");
    kpe_say(true, "%KPE-F-EDITORABO, Editor aborted");
    kpe_flush();
    tell_unreadable(name);
    kpe_exit(KPE_EXIT_EDITORABO);
}

void Editor::run_startup_command_file(const std::string& path) {
    TextBuffer file;
    note_used_file(path);
    if (!file.load(path)) abort_missing_command_file(path);
    tell_too_large(file);
    command_file_refusals_ = 0;
    const Nested startup(startup_file_depth_);
    const Nested run(command_file_depth_);
    for (size_t i = 0; i < file.line_count() && !input_ended_; ++i) {
        const size_t complaints = kpe_complaints();
        switch (execute_command(std::string(file.view(i)), /*report=*/true)) {
            case CommandResult::EnterScreenMode:
                screen_mode();
                break;
            case CommandResult::ExitSave:
                save_and_exit_now(/*show_eob=*/true);
            case CommandResult::ExitNoSave:
                if (!quiet_) {
                    kpe_say(true, "");
                    type_current_line(/*brief=*/false, 40);
                }
                quit_without_saving_now(/*report=*/false);
            case CommandResult::Continue:
            case CommandResult::Error:
                break;
        }
        stop_after(complaints);
    }
}

// The last setting wins, and unlike enable_versioning it can switch versions off.
void Editor::prescan_startup_versioning(const std::string& path) {
    TextBuffer file;
    file.load(path);
    for (size_t i = 0; i < file.line_count(); ++i) {
        std::string line = upper(std::string(file.view(i)));
        line.erase(0, line.find_first_not_of(" \t"));
        for (const std::string_view words : VERSIONING_WORDS) {
            if (!line.starts_with(words)) continue;
            const size_t first = std::min(line.find_first_not_of(" \t", words.size()), line.size());
            const size_t last = line.find_last_not_of(" \t\r");
            const std::string value = last == line.npos || last < first ? "" : line.substr(first, last - first + 1);
            if (value.empty() || value == "ON" || value == "YES") versioning_ = true;
            if (value == "OFF" || value == "NO") versioning_ = false;
        }
    }
}

bool Editor::file_exists(const std::string& p) {
    struct stat st;
    return !p.empty() && kpe_stat(p.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

std::string Editor::join_path(const std::string& dir, const std::string& name) {
    return dir.empty() || dir.ends_with('/') ? dir + name : dir + "/" + name;
}

std::optional<std::string> Editor::find_startup_file() const {
    const char* const named = std::getenv("KPE_INI");
    if (named && *named && file_exists(named)) return named;
    // In any directory that is not meant to be one's home anybody may have put commands.
    const std::string home = kpe_env_directory("HOME");
    if (home.empty()) return std::nullopt;
    for (const char* name : {"KPE.INI", "kpe.ini"}) {
        const std::string path = join_path(home, name);
        if (file_exists(path)) return path;
    }
    return std::nullopt;
}

void Editor::run_command_file(const std::string& path, bool verbose) {
    if (command_file_depth_ >= MAX_NESTING) {
        ++command_file_refusals_;
        kpe_complain(verbose, "Command files nested too deeply: " + path);
        return;
    }
    note_used_file(path);
    TextBuffer file;
    if (!file.load(path)) {
        const std::string complaint = "Unable to open command file " + path;
        kpe_complain(/*report=*/false, complaint);  // counts, but is shown on standard error
        if (verbose) kpe_warn("?" + complaint);
        tell_unreadable(path);
        return;
    }
    tell_too_large(file);
    run_commands(file, verbose);
}

void Editor::run_commands(const TextBuffer& file, bool verbose, const std::function<void()>& before_last) {
    if (command_file_depth_ == 0) command_file_refusals_ = 0;
    const Nested run(command_file_depth_);
    for (size_t i = 0; i < file.line_count() && !input_ended_ && command_file_refusals_ < MAX_REFUSALS; ++i) {
        if (before_last && i + 1 == file.line_count()) before_last();
        const size_t complaints = kpe_complaints();
        const CommandResult result = execute_command(std::string(file.view(i)), verbose);
        if (verbose) stop_after(complaints);
        const bool leaves = result == CommandResult::ExitSave || result == CommandResult::ExitNoSave;
        // A silent run goes on after EXIT and QUIT: a default startup file must not end the session.
        if (!leaves || verbose) handle_command_result(result, /*exit_allowed=*/true);
    }
}
