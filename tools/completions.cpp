// Prints the completions of a shell, made of the forms of options that the programs themselves know. Names of files are
// left to the shell, which knows how to quote them: the ";" of a file version has to be.

#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "app/editor_arguments.h"
#include "app/options.h"
#include "app/recover.h"

namespace {

struct Program {
    std::string_view name;
    std::vector<OptionForm> forms;
    bool takes_files;
};

// Forms that are another spelling are not offered.
std::vector<OptionForm> offered(std::vector<OptionForm> forms) {
    std::erase_if(forms, [](const OptionForm& form) { return form.help.empty(); });
    return forms;
}

std::vector<Program> programs() {
    const std::vector<OptionForm> common = {
        {"--help", "Print a summary and leave", false},
        {"--version", "Print the version and leave", false},
    };
    return {
        {"kpe", offered(kpe_option_forms()), true},
        {"kpe-editor", offered(kpe_editor_option_forms()), true},
        {"kpe-recover", offered(kpe_recover_option_forms()), true},
        {"kpe-keys", common, false},
    };
}

std::string words(const Program& program) {
    std::string text;
    for (const OptionForm& form : program.forms) text += (text.empty() ? "" : " ") + std::string(form.form);
    return text;
}

std::string bash() {
    std::string text =
        "# Completions of kpe for bash.\n"
        "\n"
        "_kpe() {\n"
        "    local word=${COMP_WORDS[COMP_CWORD]} forms\n"
        "    COMPREPLY=()\n"
        "    case ${COMP_WORDS[0]##*/} in\n";
    for (const Program& program : programs())
        text += "        " + std::string(program.name) + ") forms=\"" + words(program) + "\" ;;\n";
    text +=
        "    esac\n"
        "    # All else are files, which bash completes and quotes itself.\n"
        "    [[ $word == -* ]] || return 0\n"
        "    mapfile -t COMPREPLY < <(compgen -W \"$forms\" -- \"$word\")\n"
        "    if [[ ${#COMPREPLY[@]} -eq 1 && ${COMPREPLY[0]} == *= ]]; then compopt -o nospace; fi\n"
        "}\n";
    for (const Program& program : programs()) {
        const char* const files = program.takes_files ? "-o default " : "";
        text += "complete " + std::string(files) + "-F _kpe " + std::string(program.name) + "\n";
    }
    return text;
}

std::string zsh() {
    std::string text = "#compdef";
    for (const Program& program : programs()) text += " " + std::string(program.name);
    text += "\n# Completions of kpe for zsh.\n\nlocal -a forms\ncase $service in\n";
    for (const Program& program : programs()) {
        text += "    " + std::string(program.name) + ")\n        forms=(\n";
        for (const OptionForm& form : program.forms) {
            text += "            '" + std::string(form.form) + (form.takes_file ? "-" : "") + "[" +
                    std::string(form.help) + "]" + (form.takes_file ? ":file:_files" : "") + "'\n";
        }
        if (program.takes_files) text += "            '*:file:_files'\n";
        text += "        )\n        ;;\n";
    }
    return text + "esac\n_arguments $forms\n";
}

// fish has no option that takes its value only behind "=": to it such a form is a word of its own.
std::string fish_line(const OptionForm& form) {
    const std::string word(form.form);
    if (form.takes_file) return "-n 'string match -q -- \"-*\" (commandline -ct)' -a " + word;
    if (word.starts_with("--")) return "-l " + word.substr(2);
    return (word.size() == 2 ? "-s " : "-o ") + word.substr(1);
}

std::string fish() {
    std::string text = "# Completions of kpe for fish.\n";
    for (const Program& program : programs()) {
        const std::string begin = "complete -c " + std::string(program.name) + " ";
        text += "\n";
        if (!program.takes_files) text += begin + "-f\n";
        for (const OptionForm& form : program.forms)
            text += begin + fish_line(form) + " -d '" + std::string(form.help) + "'\n";
    }
    return text;
}

struct Shell {
    std::string_view name;
    std::string (*completions)();
};
constexpr Shell SHELLS[] = {{"bash", bash}, {"zsh", zsh}, {"fish", fish}};

}  // namespace

int main(int argc, char** argv) {
    for (const Shell& shell : SHELLS) {
        if (argc != 2 || shell.name != argv[1]) continue;
        std::fputs(shell.completions().c_str(), stdout);
        return 0;
    }
    std::fputs("usage: kpe_completions bash|zsh|fish\n", stderr);
    return 2;
}
