// Plays files of sessions, as tests/README.md describes them, against the program: kpe_play [-k] FILE...
// -k keeps the directories of failed cases.

#include <sys/wait.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <optional>
#include <regex>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "session_file.h"
#include "terminal.h"

namespace fs = std::filesystem;

namespace {

using std::string;
using namespace std::chrono_literals;

constexpr char LIKE = '\1';  // in expected output: the rest of the line is a regular expression
constexpr size_t SHOWN_LINES = 12;
constexpr auto SOON = 5s;  // what a check on a terminal waits for
// An end that hangs is forced after ten seconds: what came sooner came by itself, however busy the machine is.
constexpr auto BY_ITSELF = 8s;

#if defined(__SANITIZE_ADDRESS__)
const char* const SANITIZED = "1";
#else
const char* const SANITIZED = "";
#endif

// A key's bytes, or, where they begin with "k", what the terminal type's entry calls it. Of the keypad the last bytes.
const std::map<string, string> KEYS = {
    {"GOLD", "\033OP"}, {"PF2", "\033OQ"}, {"PF3", "\033OR"}, {"PF4", "\033OS"},  {"ENTER", "\033OM"},
    {"RET", "\r"},      {"TAB", "\t"},     {"ESC", "\033"},   {"BS", "\177"},     {"ERASE", "kbs"},
    {"UP", "kcuu1"},    {"DOWN", "kcud1"}, {"LEFT", "kcub1"}, {"RIGHT", "kcuf1"}, {"HOME", "khome"},
    {"END", "kend"},    {"PGUP", "kpp"},   {"PGDN", "knp"},   {"INS", "kich1"},   {"DEL", "kdch1"},
};
const string KEYPAD = "0123456789-,.+/*", KEYPAD_BYTES = "pqrstuvwxymlnkoj";

string shown(const Lines& lines, size_t from) {
    string out;
    for (size_t i = from; i < std::min(lines.size(), from + SHOWN_LINES); ++i) out += "    | " + lines[i] + "\n";
    return out;
}

bool fits(const string& wanted, const string& got) {
    const size_t like = wanted.find(LIKE);
    if (like == string::npos) return wanted == got;
    return got.compare(0, like, wanted, 0, like) == 0 &&
           std::regex_match(got.substr(like), std::regex(wanted.substr(like + 1)));
}

// Empty when they are the same.
string difference(const string& of, const string& wanted, const string& got) {
    const Lines w = split(wanted, "\n"), g = split(got, "\n");
    size_t i = 0;
    while (i < w.size() && i < g.size() && fits(w[i], g[i])) ++i;
    if (i == w.size() && i == g.size()) return "";
    return of + ", expected from line " + std::to_string(i + 1) + " on:\n" + shown(w, i) + "  got:\n" + shown(g, i);
}

// What the entry of a terminal type has for a capability.
string entry_of(const string& type, const string& capability) {
    const std::unique_ptr<FILE, int (*)(FILE*)> tput(popen(("tput -T " + type + " " + capability).c_str(), "r"),
                                                     pclose);
    char bytes[100];
    return string(bytes, fread(bytes, 1, sizeof bytes, tput.get()));
}

std::optional<string> content_of(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in || fs::is_directory(path)) return std::nullopt;
    return string(std::istreambuf_iterator<char>(in), {});
}

// Of "TERM" or "15"; GONE is the end of the terminal, of which a hangup tells. Throws for a name that is none.
int signal_number(const string& name) {
    if (name == "GONE") return SIGHUP;
    for (int number = 1; number < NSIG; ++number)
        if (const char* known = sigabbrev_np(number); known && name == known) return number;
    return std::stoi(name);
}

void expect(bool holds, const string& what) {
    if (!holds) throw std::runtime_error(what);
}

// Of one of the sessions of a case.
struct Session {
    Lines args = {"t.txt"};
    string start, type = "xterm-256color";
    int rows = 24, cols = 80;
    std::optional<string> answers;
    bool on_terminal = false, started = false, done = false;
    std::optional<string> banner;  // none: the usual one, from the file on disk
    bool raw = false, ended = false;
    string input, expected, errors;
    int status = 0, signal = 0;
    bool status_checked = false, listens = true;
    std::chrono::steady_clock::time_point signalled;
    bool kept_checked = false;
    std::vector<Step> kept;  // looked for in the end
};

// Plays one case in a directory of its own, which is its home as well. Throws std::runtime_error at the first failure.
class Player {
public:
    explicit Player(const fs::path& root) : root_(root), dir_(root / "home") { fs::create_directory(dir_); }

    void play(const std::vector<Step>& steps) {
        begin(steps, 0);
        if (std::any_of(steps.begin(), steps.end(), [&](const Step& s) { return s.keyword == "if" && !is_so(s); }))
            return;
        for (size_t i = 0; i < steps.size(); ++i) {
            const Step& s = steps[i];
            try {
                if (s.keyword != "again") {
                    step(s);
                    continue;
                }
                end();
                begin(steps, i + 1);
                if (!s.lines.empty()) now_.args = words_of(s.first());
            } catch (const std::exception& e) {
                throw std::runtime_error("line " + std::to_string(s.number) + ": " + e.what());
            }
        }
        end();
    }
    string screen() const {
        if (!terminal_) return "";
        return "  screen, cursor " + terminal_->cursor() + ":\n  |" + replaced(terminal_->all(), "\n", "\n  |") + "\n";
    }

private:
    struct Keywords;
    void begin(const std::vector<Step>& steps, size_t from);
    void step(const Step& s);

    void end() {
        if (!now_.on_terminal) {
            if (!now_.done) run();
            if (!now_.status_checked) status("0");
        } else if (terminal_) {
            if (!now_.status_checked) {
                expect(terminal_->running(), "the session has ended");
                terminal_->signal(SIGTERM);
                expect(terminal_->status() == -SIGTERM, "a signal does not end the session");
            }
            const bool killed = now_.signal == SIGKILL;
            expect(killed || terminal_->has_its_modes_back(), "the terminal is not as it was");
            const string modes = terminal_->key_modes();
            expect(!now_.listens || modes.empty() || modes == "digits" || now_.signal == SIGHUP || killed,
                   "modes are left on: " + modes);
        }
        for (const Step& s : now_.kept) kept(s);
        const size_t found = rescued().size();
        expect(!now_.kept_checked || found == now_.kept.size(), "texts kept in the end: " + std::to_string(found));
    }

    // --- Before the session or later ---

    string here(const string& text) const { return replaced(text, "$DIR", dir_.string()); }

    std::map<string, string> environment() const {
        std::map<string, string> env = {
            {"HOME", dir_.string()},
            {"KPE", KPE_PROGRAM},
            {"SRC", KPE_SOURCE_DIR},
            {"FAULTS", KPE_FAILING_CALLS},
            {"PATH", "/usr/bin:/bin"},
            {"SANITIZED", SANITIZED},
            {"LC_ALL", now_.on_terminal ? "C.UTF-8" : "C"},
            {"TERM", now_.on_terminal ? now_.type : "vt100"},
        };
        if (*SANITIZED) env["ASAN_OPTIONS"] = "verify_asan_link_order=0";
        for (const char* name : {"ASAN_OPTIONS", "LSAN_OPTIONS", "UBSAN_OPTIONS"})
            if (const char* value = getenv(name)) env[name] = value;
        for (const auto& [name, value] : env_) env[name] = value;
        return env;
    }

    // Made before the session; later it is compared.
    void file(const Step& s) {
        const fs::path path = dir_ / (s.name.empty() ? "t.txt" : unescaped(s.name));
        const string text = here(s.text());
        if (!now_.started) {
            std::ofstream(path, std::ios::binary) << text;
            return;
        }
        std::optional<string> found;
        const auto holds = [&] { return (found = content_of(path)) == text; };
        const bool same = terminal_ ? terminal_->wait_until(holds, SOON) : holds();
        expect(same, found ? difference("the file", text, *found) : "it is missing");
    }

    bool is_so(const Step& s) { return shell_status({"/bin/sh", "-e", "-c", s.command()}, "") == 0; }

    void shell(const Step& s) {
        const bool so = is_so(s);
        expect(so, "it failed: " + out_ + err_);
    }

    // The exit status as the shell gives it (128 and more: a signal; the time limit is SIGKILL); out_ and err_ are set.
    int shell_status(const Lines& words, const string& input) {
        const auto quoted = [](const string& word) { return " '" + replaced(word, "'", "'\\''") + "'"; };
        std::ofstream(root_ / "in", std::ios::binary) << input;
        string command = "cd" + quoted(dir_) + " && exec timeout -s KILL 20 env -i";
        for (const auto& [name, value] : environment()) command += quoted(name + "=" + value);
        for (const string& word : words) command += quoted(here(word));
        const int how = std::system((command + " <../in >../out 2>../err").c_str());
        out_ = content_of(root_ / "out").value();
        err_ = content_of(root_ / "err").value();
        return WIFEXITED(how) ? WEXITSTATUS(how) : 128 + WTERMSIG(how);
    }

    // --- On pipes ---

    void feed(const Step& s, const string& prompt) {
        expect(!s.lines.empty(), "nothing to type: \\e is an empty line");
        const string text = s.text();
        now_.input += text;
        for (size_t i = 0; i < s.cut().size(); ++i) now_.expected += prompt;
        now_.ended = prompt == "*" && (text.ends_with("EXIT\n") || text.ends_with("QUIT\n"));
    }

    // The whole session, as far as it was told.
    void run() {
        now_.done = now_.started = true;
        string expected = now_.raw ? "" : now_.banner.value_or(usual_banner());
        expected += now_.expected + (now_.raw || now_.ended ? "" : "*");
        Lines words = {KPE_PROGRAM};
        words.insert(words.end(), now_.args.begin(), now_.args.end());
        now_.status = shell_status(words, here(now_.input));
        const string failed =
            difference("standard output", here(expected), out_) + difference("standard error", here(now_.errors), err_);
        expect(failed.empty(), failed);
    }

    // What a session prints before its first prompt, when nothing was set otherwise.
    string usual_banner() const {
        for (const string& arg : now_.args) {
            if (arg[0] == '-' || arg[0] == '/') continue;
            const std::optional<string> text = content_of(dir_ / here(arg));
            const string first = text ? replaced(text->substr(0, text->find_first_of("\r\n")), "\f", "^L") : "";
            return "$ EDIT/KPE " + arg + (text ? "\n1 " + first + "\n" : "\nInput file does not exist\n[EOB]\n");
        }
        return "";
    }

    // --- On a terminal ---

    // On the screen, unless the first step is typed, goes on without waiting, or looks at the end.
    void start(const string& first) {
        Command command{{KPE_PROGRAM}, {}, dir_.string(), now_.rows, now_.cols};
        command.words.insert(command.words.end(), now_.args.begin(), now_.args.end());
        if (!now_.start.empty()) command.words = {"/bin/sh", "-c", now_.start};
        for (const auto& [name, value] : environment()) command.env.push_back(name + "=" + value);
        terminal_ = std::make_unique<Terminal>(command, environment()["LC_ALL"].ends_with("UTF-8"), now_.answers);
        terminal_->settle();
        if (first != "type" && first != "send" && first != "signal" && first != "status") press("CHANGE\r");
    }

    void press(const string& bytes) {
        terminal_->send(bytes);
        terminal_->settle();
    }

    void type(const Step& s) {
        if (!terminal_) return feed(s, now_.raw ? "" : "*");
        terminal_->forget_output();
        press(replaced(here(s.text()), "\n", "\r"));
    }

    // Does not wait until they are handled, but what they begin is to go on for a moment.
    void send(const Step& s) {
        terminal_->forget_output();
        terminal_->send(bytes_of(s.lines.at(0)));
        terminal_->wait_until([&] { return terminal_->took_input(); }, SOON);
        std::this_thread::sleep_for(50ms);
    }

    string bytes_of(const string& keys) const {
        static const std::regex KEY("(?:([0-9]+)\\*)?(\"[^\"]*\"|\\[[^\\]]*\\]|\\{[^}]*\\}|\\S+)");
        string bytes;
        for (std::sregex_iterator key(keys.begin(), keys.end(), KEY); key != std::sregex_iterator(); ++key) {
            const string once = bytes_of_key((*key)[2]);
            for (int count = (*key)[1].matched ? std::stoi((*key)[1]) : 1; count > 0; --count) bytes += once;
        }
        return bytes;
    }

    string bytes_of_key(const string& word) const {
        const string inside = word.substr(1, word.size() - 2);
        const size_t pad = word.size() == 3 && word.starts_with("KP") ? KEYPAD.find(word[2]) : string::npos;
        if (word[0] == '"') return unescaped(inside);
        if (word[0] == '[') return unescaped(inside) + "\r";
        if (word[0] == '{') return "\033OP\033Ow" + unescaped(inside) + "\r";
        if (word[0] == '^') return unescaped("\\" + word);
        if (pad != string::npos) return string("\033O") + KEYPAD_BYTES[pad];
        expect(KEYS.contains(word), "unknown key " + word);
        const string& bytes = KEYS.at(word);
        return bytes[0] == 'k' ? entry_of(now_.type, bytes) : bytes;
    }

    void signal(const string& name) {
        terminal_->forget_output();
        now_.signal = signal_number(name);
        now_.signalled = std::chrono::steady_clock::now();
        now_.listens = now_.listens && name != "GONE";
        expect(terminal_->running(), "the session has ended");
        if (name == "GONE") return terminal_->hang_up();
        terminal_->signal(now_.signal);
        // A stopped process does nothing else.
        if (name == "TSTP") soon([&] { return state_of(terminal_->pid()) == 'T'; }, "it does not stop");
    }

    void resize(const string& size) {
        now_.rows = std::stoi(size);
        now_.cols = std::stoi(size.substr(size.find('x') + 1));
        if (!terminal_) return;
        terminal_->forget_output();
        terminal_->resize(now_.rows, now_.cols);
    }

    // --- Checks ---

    void soon(const std::function<bool()>& holds, const string& what) {
        expect(terminal_ ? terminal_->wait_until(holds, SOON) : holds(), what);
    }

    void rows(const Step& s, string (Terminal::*seen)(int) const) {
        int number = std::stoi(s.name);
        for (const string& wanted : s.lines.empty() ? Lines{""} : s.cut()) {
            soon([&] { return (*terminal_.*seen)(number) == unescaped(wanted); }, "not so: row " + s.name);
            ++number;
        }
    }

    void has(const Step& s, bool wanted) {
        const auto so = [&] {
            const string text = s.name.empty() ? terminal_->all() : terminal_->row(std::stoi(s.name));
            return (text.find(s.first()) != string::npos) == wanted;
        };
        soon(so, wanted ? "it is not there" : "it is there");
    }

    // A number, or the signal that ended the session; "signal" is the one that was sent last. A terminal that goes
    // away may let reading fail before it sends its signal.
    void status(const string& wanted) {
        now_.status_checked = true;
        if (terminal_) now_.status = terminal_->status();
        const auto lasted = std::chrono::steady_clock::now() - now_.signalled;
        expect(now_.signal == 0 || lasted < BY_ITSELF, "it did not end by itself");
        if (wanted == "signal" && now_.signal == SIGHUP && !now_.listens && now_.status == 0) return;
        const bool exited = std::isdigit(static_cast<unsigned char>(wanted[0])) != 0;
        const int number = exited ? std::stoi(wanted) : -(wanted == "signal" ? now_.signal : signal_number(wanted));
        expect(now_.status == number, "ended with status " + std::to_string(now_.status));
    }

    std::vector<fs::path> rescued() const {
        static const std::regex TIME_AND_PROCESS(".*-20[0-9]{6}-[0-9]{6}-[0-9]+(-[0-9]+)?");
        std::vector<fs::path> paths;
        for (const auto& entry : fs::recursive_directory_iterator(dir_))
            if (!entry.is_symlink() && std::regex_match(entry.path().filename().string(), TIME_AND_PROCESS))
                paths.push_back(entry.path());
        return paths;
    }

    // Nobody else may read what is kept, and a terminal that shows errors is told of it once.
    void kept(const Step& s) {
        const string name = s.name.find('/') == string::npos ? ".local/state/kpe/rescue/" + s.name : s.name;
        const string directory = name.substr(0, name.rfind('/')), file = name.substr(name.rfind('/') + 1) + "-20";
        string found = "nothing is kept under that name";
        for (const fs::path& path : rescued()) {
            if (!path.string().starts_with((dir_ / directory).string()) || !path.filename().string().starts_with(file))
                continue;
            expect(fs::status(path).permissions() == fs::perms(0600), "others can read it, or not even its owner");
            expect(fs::status(path.parent_path()).permissions() == fs::perms::owner_all, "its directory is open");
            found = difference("what is kept", here(s.text()), content_of(path).value());
            const bool told = terminal_ && now_.listens && now_.start.find("2>") == string::npos;
            if (found.empty() && told) expect(terminal_->sent(" is kept in " + path.string()) == 1, "not told once");
            if (found.empty()) return;
        }
        throw std::runtime_error(found);
    }

    fs::path root_, dir_;
    std::map<string, string> env_;
    Session now_;
    std::unique_ptr<Terminal> terminal_;
    string out_, err_;  // of the command that was run last
};

enum class When { Before, Talk, Check, Any };

struct Player::Keywords {
    struct Row {
        const char* name;
        When when;
        bool terminal;  // whether a session with it is one on a terminal
        void (*run)(Player& p, const Step& s);
    };
    // clang-format off
    static constexpr Row ROWS[] = {
        {"args",     When::Before, false, [](Player& p, const Step& s) { p.now_.args = words_of(s.first()); }},
        {"if",       When::Before, false, [](Player&, const Step&) {}},
        {"env",      When::Before, false, [](Player& p, const Step& s) {
            const size_t is = s.first().find('=');
            p.env_[s.first().substr(0, is)] = p.here(s.first().substr(is + 1)); }},
        {"lines",    When::Before, false, [](Player& p, const Step& s) {
            std::ofstream out(p.dir_ / "t.txt", std::ios::app);
            for (int i = 1; i <= std::stoi(s.first()); ++i) out << "line " << i << '\n'; }},
        {"banner",   When::Before, false, [](Player& p, const Step& s) { p.now_.banner = s.text(); }},
        {"raw",      When::Before, false, [](Player& p, const Step&) { p.now_.raw = true; }},
        {"start",    When::Before, true,  [](Player& p, const Step& s) { p.now_.start = s.command(); }},
        {"term",     When::Before, true,  [](Player& p, const Step& s) { p.now_.type = s.first(); }},
        {"terminal", When::Before, true,  [](Player& p, const Step& s) { p.resize(s.first()); }},
        {"answers",  When::Before, true,  [](Player& p, const Step& s) { p.now_.answers = s.first(); }},
        {"file",     When::Any,    false, [](Player& p, const Step& s) { p.file(s); }},
        {"shell",    When::Any,    false, [](Player& p, const Step& s) { p.shell(s); }},

        {"type",     When::Talk,   false, [](Player& p, const Step& s) { p.type(s); }},
        {"answer",   When::Talk,   false, [](Player& p, const Step& s) { p.feed(s, ""); }},
        {"more",     When::Talk,   false, [](Player& p, const Step& s) { p.feed(s, "_"); }},
        {"shows",    When::Talk,   false, [](Player& p, const Step& s) { p.now_.expected += s.text(); }},
        {"like",     When::Talk,   false, [](Player& p, const Step& s) { p.now_.expected += LIKE + s.text(); }},
        {"stderr",   When::Talk,   false, [](Player& p, const Step& s) { p.now_.errors = s.text(); }},
        {"keys",     When::Talk,   true,  [](Player& p, const Step& s) { p.terminal_->forget_output();
            p.press(p.bytes_of(s.lines.at(0))); }},
        {"send",     When::Talk,   true,  [](Player& p, const Step& s) { p.send(s); }},
        {"signal",   When::Talk,   true,  [](Player& p, const Step& s) { p.signal(s.first()); }},
        {"size",     When::Talk,   true,  [](Player& p, const Step& s) { p.resize(s.first()); }},
        {"unread",   When::Talk,   true,  [](Player& p, const Step&) {
            p.now_.listens = false;
            p.terminal_->stop_reading(); }},

        {"status",   When::Check,  false, [](Player& p, const Step& s) { p.status(s.first()); }},
        {"absent",   When::Check,  false, [](Player& p, const Step& s) {
            p.soon([&] { return !fs::exists(fs::symlink_status(p.dir_ / s.first())); }, "it is there"); }},
        {"kept",     When::Check,  true,  [](Player& p, const Step& s) {
            p.now_.kept_checked = true;
            if (!s.name.empty() && s.name != "none") p.now_.kept.push_back(s); }},
        {"row",      When::Check,  true,  [](Player& p, const Step& s) { p.rows(s, &Terminal::row); }},
        {"reversed", When::Check,  true,  [](Player& p, const Step& s) { p.rows(s, &Terminal::reversed); }},
        {"has",      When::Check,  true,  [](Player& p, const Step& s) { p.has(s, true); }},
        {"lacks",    When::Check,  true,  [](Player& p, const Step& s) { p.has(s, false); }},
        {"cursor",   When::Check,  true,  [](Player& p, const Step& s) {
            p.soon([&] { return p.terminal_->cursor() == s.first(); }, "it is elsewhere"); }},
        {"modes",    When::Check,  true,  [](Player& p, const Step& s) {
            p.soon([&] { return p.terminal_->key_modes() == s.first(); }, "others: " + p.terminal_->key_modes()); }},
        {"sent",     When::Check,  true,  [](Player& p, const Step& s) {
            p.soon([&] { return p.terminal_->sent(p.here(s.first())) == 1; }, "not sent once"); }},
        {"unsent",   When::Check,  true,  [](Player& p, const Step& s) {
            expect(p.terminal_->sent(s.first()) == 0, "sent"); }},
        {"bytes",    When::Check,  true,  [](Player& p, const Step& s) {
            expect(p.terminal_->output().size() < std::stoul(s.first()), "more were sent"); }},
        {"bells",    When::Check,  true,  [](Player& p, const Step& s) {
            p.soon([&] { return p.terminal_->bells() == std::stoul(s.first()); }, "another number"); }},
        {"flashes",  When::Check,  true,  [](Player& p, const Step& s) {
            p.soon([&] { return p.terminal_->flashes() == std::stoul(s.first()); }, "another number"); }},
    };
    // clang-format on

    static const Row& of(const string& keyword) {
        for (const Row& row : ROWS)
            if (keyword == row.name) return row;
        throw std::runtime_error("unknown keyword " + keyword);
    }
};

void Player::begin(const std::vector<Step>& steps, size_t from) {
    now_ = {};
    terminal_.reset();
    for (size_t i = from; i < steps.size() && steps[i].keyword != "again"; ++i)
        now_.on_terminal = now_.on_terminal || Keywords::of(steps[i].keyword).terminal;
}

void Player::step(const Step& s) {
    const Keywords::Row& row = Keywords::of(s.keyword);
    expect(row.when != When::Before || !now_.started, s.keyword + " comes before the session");
    expect(row.when != When::Talk || !now_.done, s.keyword + " comes before what is checked");
    const bool begins = row.when == When::Talk || row.when == When::Check;
    if (begins && !now_.started && now_.on_terminal) start(s.keyword);
    now_.started = now_.started || begins;
    if (now_.started && !now_.on_terminal && !now_.done && row.when != When::Talk) run();
    row.run(*this, s);
}

// Returns whether it went well.
bool play_case(const string& path, const Case& c, bool keep) {
    string root = fs::temp_directory_path() / "kpe_play_XXXXXX";
    if (mkdtemp(root.data()) == nullptr) throw std::runtime_error("no temporary directory");
    Player player(root);
    bool well = true;
    try {
        player.play(c.steps);
    } catch (const std::exception& e) {
        well = false;
        printf("%s:%d: %s\n  %s\n%s", path.c_str(), c.number, c.title.c_str(), e.what(), player.screen().c_str());
        if (keep) printf("  kept in %s\n", root.c_str());
    }
    if (well || !keep) fs::remove_all(root);
    return well;
}

// The number of failed cases.
long play_file(const string& path, bool keep) {
    const std::vector<Case> cases = read_cases(path);
    const auto failed =
        std::count_if(cases.begin(), cases.end(), [&](const Case& c) { return !play_case(path, c, keep); });
    printf("%s: %zu cases, %ld failed\n", fs::path(path).filename().c_str(), cases.size(), failed);
    return failed;
}

}  // namespace

int main(int argc, char** argv) {
    const bool keep = argc > 1 && string(argv[1]) == "-k";
    long failed = argc > (keep ? 2 : 1) ? 0 : 1;
    for (int i = keep ? 2 : 1; i < argc; ++i) {
        try {
            failed += play_file(argv[i], keep);
        } catch (const std::exception& e) {
            ++failed;
            printf("%s: %s\n", argv[i], e.what());
        }
    }
    return failed == 0 ? 0 : 1;
}
