#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <optional>
#include <string>
#include <string_view>
#include <unistd.h>
#include <vector>

#include "app/editor_arguments.h"
#include "app/options.h"
#include "app/recover.h"
#include "app/usage.h"
#include "config/n3_rzconfig.h"
#include "editor/kpe.h"
#include "system/process.h"
#include "system/report.h"
#include "system/terminal.h"
#include "system/version.h"

namespace {

bool is_set_and_not_zero(const char* name) {
    const char* const value = std::getenv(name);
    return value && *value && std::string_view(value) != "0";
}

bool refuses_terminal() {
    const char* const term = std::getenv("TERM");
    if (!term || std::string_view(term) != "dumb") return false;
    kpe_warn("TERM cannot be 'dumb'");
    return true;
}

// A file that is opened later must not become a standard stream: what is printed would be written into it.
void open_standard_streams() {
    for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        if (fcntl(fd, F_GETFD) < 0 && open("/dev/null", O_RDWR) < 0) std::exit(1);
}

void redirect_tty() {
    const char* const path = std::getenv("RZ_TTY");
    if (!path || !*path) return;
    const int fd = open(path, O_RDWR);
    if (fd < 0) {
        kpe_warn("RZ_TTY: cannot open " + std::string(path) + ": " + std::strerror(errno));
        std::exit(1);
    }
    for (const int standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) dup2(fd, standard);
    if (fd > STDERR_FILENO) close(fd);
}

// The text has come by standard input, and the keys come from the terminal: both "-". Returns the path by which the
// text can be read, or "" if there is no terminal.
std::string text_from_input() {
    const int text = fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    const int terminal = open("/dev/tty", O_RDWR | O_CLOEXEC);
    if (text < 0 || terminal < 0 || dup2(terminal, STDIN_FILENO) < 0) return "";
    close(terminal);
    return "/dev/fd/" + std::to_string(text);
}

// Whether the runtime's configuration asks for versions on save.
bool configured_versioning() {
    if (n3rz::env_tagged("kpe", "_NO_RZCONFIG")) return false;
    std::string value;
    const bool found = n3rz::config_lookup("KPE/VERSIONING", value, "kpe");
    const bool versioning = found && n3rz::config_is_on(value);
    if (n3rz::env_tagged("kpe", "_RZ_DEBUG")) {
        const bool present = found || n3rz::runtime_present();  // nothing else asks, and the search takes time
        kpe_warn("kpe: rzrt_present=" + std::to_string(present) + " versioning=" + std::to_string(versioning));
    }
    return versioning;
}

int edit(Options&& options, bool versioning, SessionPolicy policy) {
    std::optional<Editor> editor;  // its texts outlive an exception
    try {
        editor.emplace(std::move(options.files), std::move(options.command_file), std::move(options.output_file),
                       options.read_only, options.recover, std::move(options.journal));
        editor->set_debug_keys(options.debug_keys);
        editor->set_no_command(options.no_command);
        editor->enable_versioning(versioning);
        editor->set_policy(std::move(policy));
        const int status = editor->run();
        kpe_safe_endwin();
        return status;
    } catch (const std::exception& e) {
        kpe_limit_end(1);
        kpe_safe_endwin();
        kpe_warn(std::string("fatal: ") + e.what());
        if (editor) editor->rescue();
        return 1;
    }
}

// The session that other programs and people get who call kpe-editor for a file.
SessionPolicy editor_policy(EditorArguments& arguments) {
    SessionPolicy policy;
    policy.places = std::move(arguments.places);
    policy.never_writes = arguments.never_writes;
    policy.begins_on_screen = policy.leaving_keys = policy.status_tells = policy.private_journal = true;
    policy.keeps_line_ends = policy.advances_time = true;
    policy.writes_unchanged = policy.versions_by_settings = false;
    return policy;
}

int run_as_editor(int argc, char** argv) {
    EditorArguments arguments = kpe_editor_arguments(argc, argv);
    if (!arguments.wrong.empty()) {
        kpe_warn("kpe-editor: " + arguments.wrong);
        kpe_warn(KPE_EDITOR_USAGE);
        return Editor::STATUS_UNSAVED;
    }
    if (arguments.help || arguments.version) {
        kpe_say_lines(arguments.help ? KPE_EDITOR_USAGE : "kpe-editor " + kpe_version_string());
        kpe_flush();
        return 0;
    }
    if (refuses_terminal()) return Editor::STATUS_UNSAVED;
    kpe_install_signal_handlers();
    SessionPolicy policy = editor_policy(arguments);
    if (arguments.text_from_input) {
        policy.read_from = text_from_input();
        if (policy.read_from.empty()) {
            kpe_warn("kpe-editor: there is no terminal to read keys from");
            return Editor::STATUS_UNSAVED;
        }
    }
    redirect_tty();
    Options options;
    options.files = std::move(arguments.files);
    options.read_only = arguments.never_writes;
    options.recover = is_set_and_not_zero("KPE_RECOVER");
    return edit(std::move(options), /*versioning=*/false, std::move(policy));
}

// --edit goes on as kpe-editor does.
int run_as_recover(int argc, char** argv) {
    RecoverResult result = kpe_recover(argc, argv);
    if (result.edit.empty()) return result.status;
    if (refuses_terminal()) return Editor::STATUS_UNSAVED;
    kpe_install_signal_handlers();
    redirect_tty();
    EditorArguments arguments;
    SessionPolicy policy = editor_policy(arguments);
    policy.recovers = std::move(result.edit_from);
    policy.recovers_until = result.edit_until;
    Options options;
    options.files.push_back(std::move(result.edit));
    return edit(std::move(options), /*versioning=*/false, std::move(policy));
}

}  // namespace

int main(int argc, char** argv) {
    open_standard_streams();
    if (argc > 0 && kpe_called_as_recover(argv[0])) return run_as_recover(argc, argv);
    if (argc > 0 && kpe_called_as_editor(argv[0])) return run_as_editor(argc, argv);
    if (argc < 2) {
        print_usage(argc > 0 ? argv[0] : nullptr);
        return 1;
    }
    if (refuses_terminal()) return 1;
    kpe_install_signal_handlers();
    redirect_tty();
    const bool versioning = configured_versioning();
    Options options = kpe_options(argc, argv);
    if (options.version) {
        kpe_say(true, "kpe " + kpe_version_string());
        kpe_flush();
        return 0;
    }
    if (options.help || options.files.empty()) {
        print_usage(argv[0]);
        return options.help ? 0 : 1;
    }
    if (is_set_and_not_zero("KPE_RECOVER")) options.recover = true;
    SessionPolicy policy;
    policy.stops_at_complaint = options.stop;
    policy.shows_prompts = !options.quiet;
    return edit(std::move(options), versioning, std::move(policy));
}
