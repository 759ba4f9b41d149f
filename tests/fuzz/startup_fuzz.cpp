#include <algorithm>

#include "fuzz/session.h"
#include "fuzz/targets.h"

// A byte that says what the file is, the file, and after a line "~" what is typed at the prompt.
void fuzz_startup(std::string_view input) {
    const unsigned kind = input.empty() ? 0 : static_cast<unsigned char>(input.front()) & 3;
    input.remove_prefix(std::min<size_t>(1, input.size()));
    const std::string_view file = input.substr(0, input.find("\n~\n"));
    constexpr std::string_view NAMES[] = {"KPE.INI", "kpe.ini", "t.txt.jou", "start.kpe"};
    fuzz_clear_directory();
    fuzz_directory().put("t.txt", "alpha beta\n\tgamma\n\nalpha alpha\n");
    fuzz_directory().put(NAMES[kind], file);
    FuzzSession session;
    session.files = {"t.txt"};
    session.recover = kind == 2;
    if (kind == 3) session.command_file = "start";
    session.typed = input.substr(std::min(file.size() + 3, input.size()));
    fuzz_run(session);
}
