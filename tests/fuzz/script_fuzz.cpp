#include <algorithm>

#include "fuzz/session.h"
#include "fuzz/targets.h"

// A byte of options, two for the allocation that fails, and what is typed at the prompt.
void fuzz_script(std::string_view input) {
    const unsigned options = input.empty() ? 0 : static_cast<unsigned char>(input.front());
    input.remove_prefix(std::min<size_t>(1, input.size()));
    fuzz_clear_directory();
    fuzz_directory().put("t.txt",
                         "alpha beta\n\tgamma  delta\n\nDon't (stop) here.\nalpha alpha\n100 last\xc3\xa9 line");
    fuzz_directory().put("u.txt", "second\r\nfile\n");
    fuzz_directory().put("c.kpe", "TYPE\nFIND alpha\n! a comment\nSET COMMAND c.kpe\n");
    FuzzSession session;
    session.typed = input;
    session.read_only = (options & 3) == 3;
    session.versions = (options & 12) == 12;
    if ((options & 48) == 48) session.output_file = "out.txt";
    if ((options & 192) == 192 && input.size() > 2) {
        session.failing = static_cast<unsigned char>(input[0]) * 64U + static_cast<unsigned char>(input[1]);
        session.typed.remove_prefix(2);
    }
    fuzz_run(session);
}

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
