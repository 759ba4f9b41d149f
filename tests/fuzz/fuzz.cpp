#include <algorithm>
#include <chrono>
#include <clocale>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <sys/resource.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include "pseudo_terminal.h"
#include "unit/scratch.h"

// kpe_fuzz lines|keys|prompt|kills: whole sessions of the program made by chance, in a sandbox from which nothing can
// be reached. A session of kills is ended by SIGKILL, and what kpe-recover makes of it has to be what a twin session
// holds. KPE_FUZZ_SECONDS (2) says how long, KPE_FUZZ_SEED runs one session alone. The status is 1 when a session
// failed, 77 where no sandbox can be made.

namespace {

using std::string;
using std::string_view;
using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

constexpr int SKIPPED = 77;
const char* const FAILED = KPE_SOURCE_DIR "/build/fuzz/failed";
constexpr string_view TEXT = "alpha beta\n\tgamma  delta\n\nDon't (stop) here.\nalpha alpha\n100 last\xc3\xa9 line\n";

// Marks, wide characters, flags, joined emoji, Hangul, and a sign in front of its digits.
constexpr string_view CHARACTERS =
    "e\u0301a\u0308\u0323 \u6f22\u5b57 x\n\u0600\u0661\u0662 \U0001f1e9\U0001f1ea\U0001f1eb\U0001f1f7 a\u00e9\n"
    "\u1112\u1161\u11ab\ud55c \U0001f469\u200d\U0001f680\u2764\ufe0f  b\n\n\u0301 \u00e9\u00df \u0633\u0644\n";

// From the start of a session on: Ctrl/C has to end what lasts so long, SIGTERM the session, and what is left hangs:
// kpe ends by itself ten seconds after a signal.
constexpr auto PATIENCE = 3s, MOST_PRESSED = 5s, MOST_ENDING = 11s;
constexpr auto BETWEEN_PRESSES = 500ms;

class Chance {
public:
    explicit Chance(unsigned long seed) : bits_(seed) {}
    size_t below(size_t n) { return bits_() % n; }
    string byte() { return string(1, static_cast<char>(bits_())); }
    template <typename List>
    string one_of(const List& list) {
        return string(list[below(std::size(list))]);
    }

private:
    std::mt19937_64 bits_;
};

// words.dict: commands, what may follow them in lines that begin with ">", and what begins like a key.
struct Words {
    std::vector<string> commands, arguments, keys;

    Words() {
        std::ifstream in(KPE_SOURCE_DIR "/tests/fuzz/words.dict");
        for (string line; std::getline(in, line);) {
            std::istringstream rest(line);
            string blanks, word;
            while (line[0] != '#' && std::getline(rest, blanks, '"') && std::getline(rest, word, '"'))
                add(word, line[0] == '>');
        }
    }
    void add(string word, bool is_argument) {
        for (size_t at; (at = word.find("\\x")) != word.npos;)
            word.replace(at, 4, 1, static_cast<char>(std::stoi(word.substr(at + 2, 2), nullptr, 16)));
        (is_argument ? arguments : word[0] < ' ' ? keys : commands).push_back(word);
    }
};

string argument(Chance& chance, const Words& words) {
    constexpr string_view TEXTS[] = {"alpha", "a", "x", " ", "", "e*a", "^", "$", "[a-d]", "\\", "?", "Don't", "\t"};
    string kinds[] = {chance.one_of(words.commands), chance.one_of(words.arguments), chance.one_of(TEXTS), ""};
    kinds[3] = "/" + kinds[2] + "/" + chance.one_of(TEXTS) + "/";
    return chance.below(30) == 0 ? chance.byte() : chance.one_of(kinds);
}

// Often a command with what may belong to it, seldom anything at all.
string command_line(Chance& chance, const Words& words) {
    string line;
    if (chance.below(8) > 0) line = chance.one_of(words.commands);
    for (size_t arguments = chance.below(4); arguments > 0; --arguments)
        line += (chance.below(3) > 0 ? " " : "") + argument(chance, words);
    std::replace(line.begin(), line.end(), '\n', ' ');
    return line;
}

// One piece is typed at once, and another one when the session waits for it.
std::vector<string> typed_lines(Chance& chance, const Words& words) {
    string all;
    for (size_t lines = 1 + chance.below(30); lines > 0; --lines) {
        const string line = command_line(chance, words);
        all += line + '\n';
        if (line.starts_with("I")) all += "one\ntwo\n.\n";
    }
    return {all + "\n\n.\n"};  // what still reads lines ends
}

std::vector<string> typed_keys(Chance& chance, const Words& words) {
    constexpr string_view PLAIN[] = {"a", "B", " ", "\t", "\r", "\x7f", "\xc3\xa9", "5", "\x08", "\x15", "\x0b"};
    std::vector<string> pieces = {"CHANGE\r"};
    for (size_t keys = 1 + chance.below(60); keys > 0; --keys) {
        string key = chance.one_of(words.keys);
        if (chance.below(3) == 0) key = "\x1bOP" + key;
        if (chance.below(3) == 0) key = chance.one_of(PLAIN);
        if (chance.below(9) == 0) key = chance.byte();
        if (chance.below(4) == 0)
            key = (chance.below(2) == 0 ? "\x1bOP\x1bOw" : "") + command_line(chance, words) + "\r";
        if (chance.below(3) > 0 && pieces.size() > 1)
            pieces.back() += key;
        else
            pieces.push_back(key);
    }
    for (const char* leaving : {"\r", "\x1a", "\r"}) pieces.emplace_back(leaving);
    return pieces;
}

// Keys and characters, whole and broken ones, but no letters that could make a command of line mode.
std::vector<string> typed_characters(Chance& chance, const Words& words) {
    constexpr string_view SETTINGS[] = {"", "SET WRAP", "SET CASE UPPER", "SET KEYPAD EDITING", "SET SEARCH WILD"};
    constexpr string_view KEYS[] = {"\x01",   "\x04",   "\n",     "\x14",    "\x15",  "\x7f",  "\t",    "\x1b[D",
                                    "\x1b[C", "\x1b[B", "\x1b[F", "\x1b[3~", "\x1bu", "\x1b.", "\x1bz", "\x1bl"};
    constexpr string_view TYPED[] = {"a",      "5",          "255\r",  " ",      "?",    "\u0301",   "\u00e9", "\u6f22",
                                     "\u200d", "\U0001f1e9", "\u0600", "\u11ab", "\xc3", "\xe6\x97", "\xff",   "\x80"};
    std::vector<string> pieces = {chance.one_of(SETTINGS) + "\rCHANGE\r"};
    for (size_t keys = 1 + chance.below(90); keys > 0; --keys) {
        const string kinds[] = {chance.one_of(words.keys), chance.one_of(KEYS), chance.one_of(TYPED)};
        const string key = chance.one_of(kinds);
        if (key == "\x1a") continue;
        if (chance.below(4) == 0) pieces.emplace_back();
        pieces.back() += (chance.below(3) == 0 ? "\x1bOP" : "") + key;
    }
    for (const char* leaving : {"\r", "\r", "\x1a", "\r"}) pieces.emplace_back(leaving);
    return pieces;
}

// Commands, and keys that edit a line: whole ones, and ones that are cut off in a piece or in the middle.
std::vector<string> typed_at_prompt(Chance& chance, const Words& words) {
    constexpr string_view KEYS[] = {"\t",     "\r",     "\x16",   "\x7f",   "\x13\x11",  "\x1b\x7f",   "\x1b[A",
                                    "\x1b[B", "\x1b[C", "\x1b[D", "\x1b[H", "\x1b[F",    "\x1b[3~",    "\x1bOA",
                                    "\x1bOD", "\x1b[",  "\x1bO",  "\x1b[2", "\x1b[1;5D", "\x1b[97;5u", "\x1b[?62c"};
    constexpr string_view TYPED[] = {"a",      "5",      " ",          "\u0301", "\u00e9",
                                     "\u6f22", "\u200d", "\U0001f1e9", "\xc3",   "\xff"};
    const auto letter_from = [&](int first) {
        return string(1, static_cast<char>(first + static_cast<int>(chance.below(26))));
    };
    std::vector<string> pieces = {""};
    for (size_t keys = 1 + chance.below(120); keys > 0; --keys) {
        const string lines = command_line(chance, words) + "\n" + command_line(chance, words);
        const string kinds[] = {letter_from('\x01'),
                                "\x1b" + letter_from('a'),
                                chance.one_of(KEYS),
                                chance.one_of(TYPED),
                                command_line(chance, words),
                                command_line(chance, words) + "\r",
                                "\x1b[200~" + lines + "\x1b[201~"};
        string key = chance.one_of(kinds);
        if (chance.below(9) == 0) key.resize(chance.below(key.size() + 1));
        if (chance.below(99) == 0) key.append(5000, 'x');
        const bool ends = key == "\x03" || key == "\x04" || key == "\x13";  // the session, or all output
        if (ends && chance.below(9) > 0) continue;
        if (chance.below(3) == 0) pieces.emplace_back();
        pieces.back() += key;
    }
    for (const char* leaving : {"\x1b[201~", "\r", "\x1a", "\r", ".\r", "\r"}) pieces.emplace_back(leaving);
    return pieces;
}

// All is undone and redone, in half of the sessions undone again, and then they end. WRITE ends redoing.
std::vector<string> checks(bool undone, const string& end) {
    string undo, redo;
    for (int i = 0; i < 100; ++i) {
        undo += "UNDO" + end;
        redo += "REDO" + end;
    }
    return {redo + "WRITE before WHOLE" + end, undo, redo + "WRITE after WHOLE" + end,
            undone ? undo + "F =MAIN" + end + "WRITE undone WHOLE" + end : "",
            "F =MAIN" + end + "WRITE kept WHOLE" + end + "EXIT" + end};
}

// The paths in /tmp.
std::set<string> in_tmp() {
    std::set<string> paths;
    for (const auto& entry : std::filesystem::directory_iterator("/tmp")) paths.insert(entry.path());
    return paths;
}

bool has_word(const string& text, const string& word) {
    const auto same = [](char a, char b) { return std::toupper(static_cast<unsigned char>(a)) == b; };
    return std::search(text.begin(), text.end(), word.begin(), word.end(), same) != text.end();
}

class Session {
public:
    Session(const string& kind, unsigned long seed)
        : on_terminal_(kind != "lines"),
          resizes_(kind == "prompt"),
          text_(kind != "prompt" && kind != "lines" && seed % 3 == 0 ? CHARACTERS : TEXT) {
        Chance chance(seed);
        static const Words words;
        const auto keys = text_ == TEXT ? typed_keys : typed_characters;
        const bool at_prompt = kind == "prompt" || (kind == "kills" && seed % 4 == 0);
        const auto typed = at_prompt ? typed_at_prompt : on_terminal_ ? keys : typed_lines;
        pieces_ = typed(chance, words);
        if (kind == "kills") {  // what is pasted counts when the paste ends
            pieces_.resize(1 + chance.below(pieces_.size()));
            pieces_.emplace_back("\x1b[201~");
        }
        for (const string& piece : pieces_) typed_ += piece;
        if (says("\x03")) sent_.insert(SIGINT);
        if (says("\x1c")) sent_.insert(SIGQUIT);
        const bool ends_itself = kind != "kills";
        for (const string& piece :
             ends_itself ? checks(seed % 2 == 0, on_terminal_ ? "\r" : "\n") : std::vector<string>())
            pieces_.push_back(piece);
        dir_.put("t.txt", text_);
        dir_.put("u.txt", "second\r\nfile\n");
        dir_.put("c.kpe", "TYPE\nFIND alpha\n! a comment\nSET COMMAND c.kpe\n");
        string session = "exec " KPE_PROGRAM " t.txt";
        if (!on_terminal_) {
            string input;
            for (const string& piece : pieces_) input += piece;
            session += " <" + dir_.put("io/in", input) + " >io/out 2>io/err";
        }
        constexpr string_view TERMINALS[] = {"xterm", "vt100", "vt220", "dumb"};
        command_.words = {"sh", "-c", session};
        command_.directory = dir_.root();
        command_.env = {"HOME=" + dir_.root(),
                        "TERM=" + chance.one_of(TERMINALS),
                        "LANG=C.UTF-8",
                        "PATH=/usr/bin:/bin",
                        "ASAN_OPTIONS=detect_leaks=0:hard_rss_limit_mb=1000:log_path=sanitizer",
                        "UBSAN_OPTIONS=log_path=sanitizer"};
    }
    const string& typed() const { return typed_; }

    // Ends the session when all is typed. Returns whether that has ended it, and nothing else.
    bool killed_by(int signal, std::chrono::microseconds early) {
        PseudoTerminal terminal(command_);
        last_signal_ = signal;
        early_ = early;
        return ends(terminal) && terminal.ended_with() == -signal;
    }
    // The text that a user gets back, nothing if kpe-recover fails; and the text that a session held which was asked to
    // end.
    std::optional<string> recovered() const {
        const string recover =
            "cd '" + dir_.root() + "' && HOME=$PWD '" KPE_PROGRAM "-recover' --write r.txt t.txt 2>why";
        const int status = std::system(recover.c_str());
        if (WIFEXITED(status) && WEXITSTATUS(status) < 2) return dir_.get(WEXITSTATUS(status) == 0 ? "r.txt" : "t.txt");
        return std::nullopt;
    }
    // Nothing if the text was empty, or stored in a file.
    std::optional<string> rescued() const {
        const string rescue = ".local/state/kpe/rescue";
        if (std::filesystem::exists(dir_.path(rescue)))
            for (const string& name : dir_.names(rescue))
                if (name.starts_with("t.txt-MAIN-")) return dir_.get(rescue + "/" + name);
        return std::nullopt;
    }
    string why_unrecovered() const { return dir_.get("why"); }

    // What is wrong with it; "" when nothing is.
    string fault() {
        PseudoTerminal terminal(command_);
        if (!ends(terminal)) return "hangs";
        for (const string& name : dir_.names()) {
            const string report = name.starts_with("sanitizer") ? dir_.get(name) : "";
            if (!report.empty()) return report.find("rss limit") == report.npos ? report : "";
        }
        const int how = terminal.ended_with();
        // A script that ends in time was sent no Ctrl/C.
        if (!on_terminal_ && how == -SIGINT && !says("\x03")) return "hangs";
        if (how < 0 && !sent_.contains(-how)) return "ended by signal " + std::to_string(-how);
        if (!terminal.has_its_modes_back()) return "the terminal is not as it was";
        for (const string& path : in_tmp()) {
            const bool allowed = before_.contains(path) || path == dir_.root();
            // PRINT of an invalid range leaves its file.
            if (!allowed && !path.starts_with("/tmp/kpe_print_")) return "outside of its directory: " + path;
        }
        return how == 0 ? wrong_file() : "";
    }

private:
    bool ends(PseudoTerminal& terminal) {
        const auto start = Clock::now();
        auto pressed = start + PATIENCE;
        string rest;
        bool asked = false;
        for (size_t piece = 0; terminal.running();) {
            const auto now = Clock::now();
            if (now > start + MOST_ENDING) return false;
            terminal.output_within(200us);
            while (terminal.read(output_) > 0) {
            }
            // As terminals do: kpe waits for the answer before it leaves the screen, which looks as if it waited for
            // keys.
            if (!asked && (asked = output_.find("\033[c") != output_.npos)) rest.insert(0, "\033[?62c");
            if (!on_terminal_ || !rest.empty()) rest.erase(0, terminal.write(rest));
            const bool waits = on_terminal_ && rest.empty() && terminal.waits_for_input();
            if (last_signal_ != 0 && piece == pieces_.size() && rest.empty() && (waits || early_ > 0us)) {
                if (early_ > 0us) usleep(static_cast<useconds_t>(early_.count()));
                terminal.signal(std::exchange(last_signal_, 0));
                sent_.insert(SIGTERM);
                continue;
            }
            const bool over = waits || now > start + MOST_PRESSED;
            if (waits && piece < pieces_.size()) {
                if (resizes_ && piece % 3 == 0) resize(terminal, piece);
                rest = pieces_[piece++];
            } else if (!sent_.contains(SIGTERM) && (over || now > pressed)) {
                pressed = now + BETWEEN_PRESSES;
                terminal.signal(over ? SIGTERM : SIGINT);
                sent_.insert(over ? SIGTERM : SIGINT);
            }
        }
        while (terminal.read(output_) > 0) {
        }
        return true;
    }
    // To a size that the number stands for, also to ones that hold next to nothing.
    static void resize(PseudoTerminal& terminal, size_t number) {
        constexpr int MOST_ROWS = 30, MOST_COLUMNS = 90, STEP = 37;
        const int size = static_cast<int>(number) * STEP;
        terminal.resize(1 + size % MOST_ROWS, 1 + size % MOST_COLUMNS);
    }
    bool says(const char* word) const { return typed_.find(word) != typed_.npos; }
    // Whether no state of the text had to be forgotten.
    bool undid_all() const {
        const string output = on_terminal_ ? output_ : dir_.get("io/out");
        const size_t before = output.find("before written"), nothing = output.find("Nothing to undo", before);
        return before != output.npos && nothing < output.find("after written") && !says("UNDO");
    }
    // Of a session that came to its last EXIT, and writes plain text.
    string wrong_file() {
        const auto names = dir_.names();
        if (!names.contains("kept") || says("RMS") || says("VERSION")) return "";
        const auto text = [&](const char* name) {
            const string bytes = dir_.get(name);
            return bytes == "\n" ? "" : bytes;
        };
        if (text("kept") != text("t.txt")) return "the file is not what was written before EXIT";
        if (text_ != TEXT && std::mbstowcs(nullptr, dir_.get("kept").c_str(), 0) == static_cast<size_t>(-1))
            return "a character is broken";
        if (text("before") != text("after")) return "undone and redone, the text is another one";
        if (undid_all() && names.contains("undone") && text("undone") != text_)
            return "when all is undone, the text is not the first one";
        return "";
    }

    const std::set<string> before_ = in_tmp();  // what the sandbox needs from there, if the sources lie below it
    Scratch dir_;
    bool on_terminal_, resizes_;
    string_view text_;                   // of the file: what is typed into CHARACTERS may break none
    int last_signal_ = 0;                // that ends the session, 0 once it is sent
    std::chrono::microseconds early_{};  // when, after the last piece, without waiting for what becomes of it
    std::set<int> sent_;                 // signals
    std::vector<string> pieces_;
    string typed_, output_;
    Command command_;
};

unsigned long setting(const char* name, unsigned long otherwise) {
    const char* const value = std::getenv(name);
    return value ? std::strtoul(value, nullptr, 10) : otherwise;
}

// What is wrong with a session that is killed. One in three is killed while it works: then it may be anywhere between
// two texts, but has to come back without a fault.
string fault_of_kill(unsigned long seed) {
    Session killed("kills", seed), twin("kills", seed);
    const std::chrono::microseconds early(seed % 3 == 0 ? 1 + seed % 2000 : 0);
    // Another text in each session; a file that holds the text as records.
    if (has_word(killed.typed(), "DATE") || has_word(killed.typed(), "RMS")) return "";
    if (!killed.killed_by(SIGKILL, early)) return "";
    const auto text = killed.recovered();
    if (!text) return "not recovered: " + killed.why_unrecovered();
    if (early.count() > 0 || !twin.killed_by(SIGTERM, 0us)) return "";
    const auto plain = [](const string& bytes) { return bytes == "\n" ? "" : bytes; };
    const auto held = twin.rescued();
    return !held || plain(*text) == plain(*held) ? "" : "recovered is\n" + *text + "\nand not\n" + *held;
}

// In the sandbox.
int run_sessions(const string& kind) {
    std::setlocale(LC_CTYPE, "C.UTF-8");
    const rlimit file_size = {8 << 20, 8 << 20}, no_core = {0, 0};
    setrlimit(RLIMIT_FSIZE, &file_size);
    setrlimit(RLIMIT_CORE, &no_core);
    const unsigned long only = setting("KPE_FUZZ_SEED", 0);
    const auto end = Clock::now() + std::chrono::seconds(setting("KPE_FUZZ_SECONDS", 2));
    unsigned sessions = 0;
    for (unsigned long seed = only ? only : std::random_device{}(); sessions == 0 || Clock::now() < end; ++seed) {
        Session session(kind, seed);
        ++sessions;
        if (const string fault = kind == "kills" ? fault_of_kill(seed) : session.fault(); !fault.empty()) {
            const string input = FAILED + ("/" + kind + "-" + std::to_string(seed));
            std::ofstream(input, std::ios::binary) << session.typed();
            std::fprintf(stderr, "%s\nwith KPE_FUZZ_SEED=%lu, typed: %s\n", fault.c_str(), seed, input.c_str());
            return 1;
        }
        if (only) break;
    }
    std::printf("%s: %u sessions\n", kind.c_str(), sessions);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    const string kind = argc > 1 ? argv[1] : "";
    if (kind != "lines" && kind != "keys" && kind != "prompt" && kind != "kills") {
        std::fprintf(stderr, "usage: kpe_fuzz lines|keys|prompt|kills\n");
        return 2;
    }
    if (argc > 2) return run_sessions(kind);
    std::filesystem::create_directories(FAILED);
    const auto bind = [](const char* how, const string& path) {
        return string(how) + " '" + path + "' '" + path + "' ";
    };
    // In it all is read-only but /tmp, which is empty. What is needed from outside may lie below /tmp.
    const string sandbox = "exec bwrap --ro-bind / / --dev /dev --proc /proc --tmpfs /tmp" +
                           bind(" --ro-bind", KPE_SOURCE_DIR) +
                           bind("--ro-bind", std::filesystem::path(KPE_PROGRAM).parent_path()) +
                           bind("--bind", FAILED) + "--setenv TMPDIR /tmp --unshare-all --die-with-parent ";
    if (std::system((sandbox + "true 2>/dev/null").c_str()) != 0) {
        std::fprintf(stderr, "kpe_fuzz: skipped, as bubblewrap can make no sandbox here\n");
        return SKIPPED;
    }
    const string command = sandbox + "'" + std::filesystem::absolute(argv[0]).string() + "' " + kind + " inside";
    execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
    return 1;
}
