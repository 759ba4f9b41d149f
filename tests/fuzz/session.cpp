#include "fuzz/session.h"

#include <algorithm>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <sys/mman.h>
#include <unistd.h>

#include "fuzz/guard.h"
#include "fuzz/targets.h"
#include "system/input.h"
#include "system/report.h"
#include "system/terminal.h"

namespace {

// Undoing and redoing is compared for texts up to this size, all buffers together.
constexpr size_t MOST_COMPARED = size_t{1} << 20;

// A file that holds the bytes and has no name, read from its start.
int file_of(std::string_view bytes) {
    const int fd = memfd_create("typed", MFD_CLOEXEC);
    const bool written = write(fd, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size());
    fuzz_check(written && lseek(fd, 0, SEEK_SET) == 0, "a file in memory can be written");
    return fd;
}

// Standard input and output are what the session has, for as long as it lives.
class Standard {
public:
    explicit Standard(const FuzzSession& session) {
        static const int nowhere = open("/dev/null", O_RDWR | O_CLOEXEC);
        const int input = session.terminal >= 0 ? session.terminal : file_of(session.typed);
        dup2(input, STDIN_FILENO);
        dup2(session.terminal >= 0 ? session.terminal : nowhere, STDOUT_FILENO);
        if (input != session.terminal) close(input);
    }
    // What was typed and not read must not come to the next session.
    ~Standard() {
        kpe_flush();
        kpe_end_type_ahead();
        const int empty = file_of("");
        dup2(empty, STDIN_FILENO);
        close(empty);
        while (kpe_read_line()) {
        }
        kpe_flush();
    }
    Standard(const Standard&) = delete;
    Standard& operator=(const Standard&) = delete;
};

// In line mode the cursor may stand behind the last line.
void check_places(EditorPeek& peek, size_t rows_behind) {
    const TextBuffer& text = peek.buffer();
    fuzz_check(text.line_count() > 0, "there is a line");
    const auto [row, col] = peek.cursor();
    const std::string where = std::to_string(row) + ", " + std::to_string(col);
    fuzz_check(row < text.line_count() + rows_behind && (rows_behind > 0 || col <= text.length(row)),
               "the cursor lies in the text", where);
    const bool outside =
        text.has_mark() && (text.mark_row() >= text.line_count() || text.mark_col() > text.length(text.mark_row()));
    fuzz_check(!outside, "the mark lies in the text");
}

// All texts, one behind the other; nothing when they are too large to be compared.
std::optional<std::string> texts(EditorPeek& peek) {
    std::string all = peek.buffer_name();
    for (const auto& [name, buffer] : peek.buffers()) {
        size_t size = buffer.line_count();
        for (size_t row = 0; row < buffer.line_count() && size < MOST_COMPARED; ++row) size += buffer.length(row);
        if (all.size() + size >= MOST_COMPARED) return std::nullopt;
        all += "\n[" + name + "]\n" + buffer.text();
    }
    return all;
}

void check_undo(EditorPeek& peek) {
    const std::optional<std::string> before = texts(peek);
    if (!before) return;
    size_t undone = 0;
    for (; peek.undo(); ++undone) check_places(peek, 0);
    fuzz_check(undone <= Editor::max_undo_, "the undo stack has a bound");
    for (; undone > 0; --undone) {
        fuzz_check(peek.redo(), "what was undone can be redone");
        check_places(peek, 0);
    }
    fuzz_check(texts(peek) == before, "redoing all gives the texts back", *before);
}

// After EXIT, which takes the journal away, the file holds the kept text.
void check_saved(EditorPeek& peek) {
    if (peek.writes_records() || std::filesystem::exists(peek.journal_path())) return;
    const TextBuffer& text = peek.buffers().at("MAIN");
    std::string expected;
    for (size_t row = 0; row < text.line_count(); ++row) (expected += text.view(row)) += '\n';
    if (expected == "\n") expected.clear();
    const std::string& path = peek.saved_path();
    std::ifstream file(path, std::ios::binary);
    const std::string saved{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    fuzz_check(saved == expected, "the file holds the text", path);
}

}  // namespace

const Scratch& fuzz_directory() {
    static const Scratch* const directory = [] {
        auto* const made = new Scratch;
        std::atexit([] { std::filesystem::remove_all(fuzz_directory().root()); });
        const bool entered = chdir(made->root().c_str()) == 0;
        fuzz_check(entered, "the directory can be entered");
        for (const char* name : {"KPE_VMS_VERSIONS", "KPE_INI", "XDG_STATE_HOME"}) unsetenv(name);
        setenv("HOME", made->root().c_str(), 1);
        setenv("PATH", "/nonexistent", 1);
        setenv("LC_ALL", "C.UTF-8", 1);
        return made;
    }();
    return *directory;
}

void fuzz_clear_directory() {
    for (const std::string& name : fuzz_directory().names()) std::filesystem::remove_all(fuzz_directory().path(name));
}

void fuzz_run(const FuzzSession& session) {
    const Scratch& directory = fuzz_directory();
    EditorPeek peek{Editor{session.files, session.command_file, session.output_file, session.read_only, session.recover,
                           std::nullopt}};
    peek.editor.enable_versioning(session.versions);
    std::optional<int> status;
    {
        const Standard standard(session);
        const Guard guard(directory.root(), session.failing, session.on_wait);
        try {
            peek.editor.run();
        } catch (const EndOfSession& end) {
            status = end.status;
        } catch (const std::bad_alloc&) {
            // Outside the commands memory may run out for good.
        }
        kpe_safe_endwin();
    }
    check_places(peek, 1);
    if (status == 0 && !session.typed.empty() && !session.command_file) check_saved(peek);
    check_undo(peek);
}
