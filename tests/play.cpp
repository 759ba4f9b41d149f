// Plays files of sessions, as tests/README.md describes them, against the program: kpe_play [-k] FILE...
// -k keeps the directories of failed cases.

#include <sys/wait.h>

#include <algorithm>
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

#include "terminal.h"

namespace fs = std::filesystem;

namespace {

using emulated::Terminal;
using std::string;
using Lines = std::vector<string>;
using namespace std::chrono_literals;

// In expected output: the rest of the line is a regular expression; any lines may be here.
constexpr char LIKE = '\1';
const string SKIPS = "\2";
constexpr size_t SHOWN_LINES = 12;
constexpr size_t INDENT = 8;  // of the further lines of a value
constexpr auto SOON = 5s;     // what a check on a terminal waits for
const char* const RESCUED = ".local/state/kpe/rescue";

// A key's bytes, or, where they begin with "k", what the terminal type's entry calls it.
const std::map<string, string> KEYS = {
    {"GOLD", "\033OP"}, {"PF2", "\033OQ"},   {"PF3", "\033OR"}, {"PF4", "\033OS"},  {"KP0", "\033Op"},
    {"KP1", "\033Oq"},  {"KP2", "\033Or"},   {"KP3", "\033Os"}, {"KP4", "\033Ot"},  {"KP5", "\033Ou"},
    {"KP6", "\033Ov"},  {"KP7", "\033Ow"},   {"KP8", "\033Ox"}, {"KP9", "\033Oy"},  {"KP-", "\033Om"},
    {"KP,", "\033Ol"},  {"KP.", "\033On"},   {"KP+", "\033Ok"}, {"KP/", "\033Oo"},  {"KP*", "\033Oj"},
    {"UP", "kcuu1"},    {"DOWN", "kcud1"},   {"LEFT", "kcub1"}, {"RIGHT", "kcuf1"}, {"HOME", "khome"},
    {"END", "kend"},    {"PGUP", "kpp"},     {"PGDN", "knp"},   {"INS", "kich1"},   {"DEL", "kdch1"},
    {"RET", "\r"},      {"ENTER", "\033OM"}, {"TAB", "\t"},     {"ESC", "\033"},    {"BS", "\177"},
    {"ERASE", "kbs"},
};

string trimmed(const string& s) {
    const size_t first = s.find_first_not_of(" \t");
    return first == string::npos ? "" : s.substr(first, s.find_last_not_of(" \t") - first + 1);
}

Lines split(const string& text, const string& at) {
    Lines parts;
    size_t from = 0;
    for (size_t end; (end = text.find(at, from)) != string::npos; from = end + at.size())
        parts.push_back(text.substr(from, end - from));
    parts.push_back(text.substr(from));
    return parts;
}

Lines words_of(const string& text) {
    std::istringstream words(text);
    return {std::istream_iterator<string>(words), {}};
}

string replaced(string text, const string& from, const string& to) {
    for (size_t at = 0; (at = text.find(from, at)) != string::npos; at += to.size()) text.replace(at, from.size(), to);
    return text;
}

// "\e" stands for no byte. Throws for an escape that is none.
string unescaped(const string& text) {
    static const string NAMES = "strn|\\", BYTES = " \t\r\n|\\";
    string out;
    for (size_t i = 0; i < text.size(); ++i) {
        const char name = text[i] == '\\' ? text.at(++i) : '\0';
        if (const size_t at = NAMES.find(name); name == '\0') {
            out += text[i];
        } else if (at != string::npos) {
            out += BYTES[at];
        } else if (name == '^') {
            out += static_cast<char>(text.at(++i) & 0x1f);
        } else if (name == 'x') {
            out += static_cast<char>(std::stoi(text.substr(i + 1, 2), nullptr, 16));
            i += 2;
        } else if (name == '{') {
            const size_t blank = text.find(' ', i), end = text.find('}', i);
            const string piece = unescaped(text.substr(blank + 1, end - blank - 1));
            for (int count = std::stoi(text.substr(i + 1)); count > 0; --count) out += piece;
            i = end;
        } else if (name != 'e') {
            throw std::runtime_error(string("unknown escape \\") + name);
        }
    }
    return out;
}

// With its end, unless "\c" takes that away.
string whole_line(const string& line) {
    return line.ends_with("\\c") ? unescaped(line.substr(0, line.size() - 2)) : unescaped(line) + '\n';
}

// Printable, and cut after some lines.
string shown(const Lines& lines, size_t from) {
    string out;
    for (size_t i = from; i < std::min(lines.size(), from + SHOWN_LINES); ++i) {
        out += "    | ";
        for (const char c : lines[i]) {
            char hex[8];
            snprintf(hex, sizeof hex, "\\x%02x", static_cast<unsigned>(static_cast<unsigned char>(c)));
            out += c == LIKE ? "(like) " : c >= ' ' && c < 127 ? string(1, c) : string(hex);
        }
        out += '\n';
    }
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
    const Lines w = split(wanted, "\n");
    Lines g = split(got, "\n");
    const size_t skips = static_cast<size_t>(std::find(w.begin(), w.end(), SKIPS) - w.begin());
    const auto at = [&](size_t row) { return g.begin() + static_cast<std::ptrdiff_t>(row); };
    if (skips < w.size() && g.size() > w.size()) *g.erase(at(skips), at(skips + g.size() - w.size())) = SKIPS;
    size_t i = 0;
    while (i < w.size() && i < g.size() && fits(w[i], g[i])) ++i;
    if (i == w.size() && i == g.size()) return "";
    return of + ", expected from line " + std::to_string(i + 1) + " on:\n" + shown(w, i) + "  got:\n" + shown(g, i);
}

std::optional<string> content_of(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in || fs::is_directory(path)) return std::nullopt;
    return string(std::istreambuf_iterator<char>(in), {});
}

// Of "TERM" or "15"; GONE is the end of the terminal, of which a hangup tells. Throws for a name that is none.
constexpr int GONE = -1;
int signal_number(const string& name) {
    if (name == "GONE") return GONE;
    for (int number = 1; number < NSIG; ++number)
        if (const char* known = sigabbrev_np(number); known && name == known) return number;
    return std::stoi(name);
}

// "keyword name: value", in lines as they are written.
struct Step {
    int number;
    string keyword, name;
    Lines lines;
    bool has_value() const { return !lines.empty(); }
    string first() const { return lines.empty() ? "" : unescaped(lines[0]); }
    // The first one cut at " | ", without the blanks around that.
    Lines cut() const {
        Lines parts;
        if (lines.empty()) return parts;
        for (const string& part : split(lines[0], " | ")) parts.push_back(trimmed(part));
        parts.insert(parts.end(), lines.begin() + 1, lines.end());
        return parts;
    }
    string text() const {
        string all;
        for (const string& line : cut()) all += whole_line(line);
        return all;
    }
};

struct Case {
    string title;
    int number;
    std::vector<Step> steps;
};

// Plays one case in a directory of its own, which is its home as well. Throws std::runtime_error at the first failure.
class Player {
public:
    Player(const Case& c, const fs::path& root) : case_(c), root_(root), dir_(root / "home") {
        fs::create_directory(dir_);
    }
    void play();
    // What a terminal shows; empty without one.
    string screen() const;

private:
    struct Keywords;
    void begin(size_t from);
    void step(const Step& s);
    void end();

    // --- Before the session, or after it ---
    void file(const Step& s);
    void shell(const Step& s);
    // --- On pipes ---
    void run();
    void feed(const Step& s, const string& prompt);
    string usual_banner() const;
    // --- On a terminal ---
    void start(const string& first);
    void type(const Step& s);
    void keys(const Step& s, bool settles);
    void signal(const Step& s);
    void resize(const string& size);
    string bytes_of(const string& keys) const;
    // --- Checks ---
    void expect(bool holds, const string& what) const;
    void soon(const std::function<bool()>& holds, const string& what);
    void rows(const Step& s, bool reversed);
    void has(const Step& s, bool wanted);
    void status(const string& wanted);
    void kept(const Step& s);

    string here(const string& text) const;
    int shell_status(const Lines& words, const string& input);
    std::map<string, string> environment() const;

    const Case& case_;
    fs::path root_, dir_;
    std::map<string, string> env_;

    // Of the session that is played; `begin` sets them anew.
    Lines args_;
    bool on_terminal_ = false, started_ = false, done_ = false;
    std::optional<string> banner_;  // none: the usual one, from the file on disk
    string input_, expected_, wanted_errors_, out_, err_;
    bool raw_ = false, ended_ = false, status_seen_ = false;
    int status_ = 0, signal_ = 0;
    size_t kept_ = 0;
    bool kept_seen_ = false;
    int rows_ = 24, cols_ = 80;
    string type_, start_;
    std::unique_ptr<Terminal> terminal_;
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
        {"args",     When::Before, false, [](Player& p, const Step& s) { p.args_ = words_of(s.first()); }},
        {"env",      When::Before, false, [](Player& p, const Step& s) {
            const size_t is = s.first().find('=');
            p.env_[s.first().substr(0, is)] = p.here(s.first().substr(is + 1)); }},
        {"lines",    When::Before, false, [](Player& p, const Step& s) {
            std::ofstream out(p.dir_ / "t.txt", std::ios::app);
            for (int i = 1; i <= std::stoi(s.first()); ++i) out << "line " << i << '\n'; }},
        {"banner",   When::Before, false, [](Player& p, const Step& s) { p.banner_ = s.text(); }},
        {"raw",      When::Before, false, [](Player& p, const Step&) { p.raw_ = true; }},
        {"start",    When::Before, true,  [](Player& p, const Step& s) { p.start_ = s.lines.at(0); }},
        {"term",     When::Before, true,  [](Player& p, const Step& s) { p.type_ = s.first(); }},
        {"terminal", When::Before, true,  [](Player& p, const Step& s) { p.resize(s.first()); }},
        {"file",     When::Any,    false, [](Player& p, const Step& s) { p.file(s); }},
        {"shell",    When::Any,    false, [](Player& p, const Step& s) { p.shell(s); }},

        {"type",     When::Talk,   false, [](Player& p, const Step& s) { p.type(s); }},
        {"answer",   When::Talk,   false, [](Player& p, const Step& s) { p.feed(s, ""); }},
        {"more",     When::Talk,   false, [](Player& p, const Step& s) { p.feed(s, "_"); }},
        {"shows",    When::Talk,   false, [](Player& p, const Step& s) { p.expected_ += s.text(); }},
        {"like",     When::Talk,   false, [](Player& p, const Step& s) { p.expected_ += LIKE + s.text(); }},
        {"skips",    When::Talk,   false, [](Player& p, const Step&) { p.expected_ += SKIPS + '\n'; }},
        {"stderr",   When::Talk,   false, [](Player& p, const Step& s) { p.wanted_errors_ = s.text(); }},
        {"keys",     When::Talk,   true,  [](Player& p, const Step& s) { p.keys(s, /*settles=*/true); }},
        {"send",     When::Talk,   true,  [](Player& p, const Step& s) { p.keys(s, /*settles=*/false); }},
        {"signal",   When::Talk,   true,  [](Player& p, const Step& s) { p.signal(s); }},
        {"size",     When::Talk,   true,  [](Player& p, const Step& s) { p.resize(s.first()); }},
        {"unread",   When::Talk,   true,  [](Player& p, const Step&) { p.terminal_->stop_reading(); }},

        {"status",   When::Check,  false, [](Player& p, const Step& s) { p.status(s.first()); }},
        {"absent",   When::Check,  false, [](Player& p, const Step& s) {
            const fs::path path = p.dir_ / s.first();
            p.soon([&] { return !fs::exists(fs::symlink_status(path)); }, "it is there"); }},
        {"kept",     When::Check,  false, [](Player& p, const Step& s) { p.kept(s); }},
        {"row",      When::Check,  true,  [](Player& p, const Step& s) { p.rows(s, /*reversed=*/false); }},
        {"reversed", When::Check,  true,  [](Player& p, const Step& s) { p.rows(s, /*reversed=*/true); }},
        {"has",      When::Check,  true,  [](Player& p, const Step& s) { p.has(s, true); }},
        {"lacks",    When::Check,  true,  [](Player& p, const Step& s) { p.has(s, false); }},
        {"cursor",   When::Check,  true,  [](Player& p, const Step& s) {
            p.soon([&] {
                const emulated::Position is = p.terminal_->cursor();
                return std::to_string(is.row) + "," + std::to_string(is.col) == s.first(); }, "it is elsewhere"); }},
        {"sent",     When::Check,  true,  [](Player& p, const Step& s) {
            p.soon([&] { return p.terminal_->sent(s.first()) == 1; }, "not sent once"); }},
        {"unsent",   When::Check,  true,  [](Player& p, const Step& s) {
            p.expect(p.terminal_->sent(s.first()) == 0, "sent"); }},
        {"bytes",    When::Check,  true,  [](Player& p, const Step& s) {
            p.expect(p.terminal_->output().size() < std::stoul(s.first()), "more were sent"); }},
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

void Player::play() {
    begin(0);
    for (size_t i = 0; i < case_.steps.size(); ++i) {
        const Step& s = case_.steps[i];
        try {
            if (s.keyword == "again") {
                end();
                begin(i + 1);
                if (s.has_value()) args_ = words_of(s.first());
            } else {
                step(s);
            }
        } catch (const std::exception& e) {
            throw std::runtime_error("line " + std::to_string(s.number) + ": " + e.what());
        }
    }
    end();
}

void Player::begin(size_t from) {
    args_ = {"t.txt"};
    on_terminal_ = started_ = done_ = raw_ = ended_ = status_seen_ = kept_seen_ = false;
    banner_.reset();
    for (string* text : {&input_, &expected_, &wanted_errors_, &start_}) text->clear();
    kept_ = 0;
    rows_ = 24;
    cols_ = 80;
    type_ = "xterm-256color";
    terminal_.reset();
    for (size_t i = from; i < case_.steps.size() && case_.steps[i].keyword != "again"; ++i)
        on_terminal_ = on_terminal_ || Keywords::of(case_.steps[i].keyword).terminal;
}

void Player::step(const Step& s) {
    const Keywords::Row& row = Keywords::of(s.keyword);
    if (row.when == When::Before && started_) throw std::runtime_error(s.keyword + " comes before the session");
    if (row.when == When::Talk && done_) throw std::runtime_error(s.keyword + " comes before what is checked");
    const bool begins = row.when == When::Talk || row.when == When::Check;
    if (begins && !started_ && on_terminal_) start(s.keyword);
    started_ = started_ || begins;
    if (started_ && !on_terminal_ && !done_ && row.when != When::Talk) run();
    row.run(*this, s);
}

void Player::end() {
    if (!on_terminal_) {
        if (!done_) run();
        if (!status_seen_) status("0");
    } else if (terminal_) {
        if (!status_seen_) {
            expect(terminal_->running(), "the session has ended");
            terminal_->signal(SIGTERM);
            expect(terminal_->status() == -SIGTERM, "a signal does not end the session");
        }
        expect(terminal_->has_its_modes_back(), "the terminal is not as it was");
    }
    if (!kept_seen_) return;
    size_t found = 0;
    if (fs::exists(dir_ / RESCUED))
        found = static_cast<size_t>(std::distance(fs::directory_iterator(dir_ / RESCUED), {}));
    expect(found == kept_, "texts kept in the end: " + std::to_string(found));
}

// Before the session a file is made; later it is compared.
void Player::file(const Step& s) {
    const fs::path path = dir_ / (s.name.empty() ? "t.txt" : unescaped(s.name));
    const string text = here(s.text());
    if (!started_) {
        fs::create_directories(path.parent_path());
        std::ofstream(path, std::ios::binary) << text;
        return;
    }
    std::optional<string> found;
    const auto holds = [&] { return (found = content_of(path)) == text; };
    if (terminal_) terminal_->wait_until(holds, SOON);
    expect(holds(), found ? difference("the file", text, *found) : "it is missing");
}

void Player::shell(const Step& s) {
    string command;
    for (const string& line : s.lines) command += line + "\n";
    expect(shell_status({"/bin/sh", "-e", "-c", command}, "") == 0, "it failed: " + out_ + err_);
}

std::map<string, string> Player::environment() const {
    std::map<string, string> env = {
        {"HOME", dir_.string()},   {"KPE", KPE_PROGRAM}, {"SRC", KPE_SOURCE_DIR},
        {"PATH", "/usr/bin:/bin"}, {"LC_ALL", "C"},      {"TERM", "vt100"},
    };
    if (on_terminal_) env["LC_ALL"] = "C.UTF-8", env["TERM"] = type_;
    for (const char* name : {"ASAN_OPTIONS", "LSAN_OPTIONS", "UBSAN_OPTIONS"})
        if (const char* value = getenv(name)) env[name] = value;
    for (const auto& [name, value] : env_) env[name] = value;
    return env;
}

string Player::here(const string& text) const { return replaced(text, "$DIR", dir_.string()); }

// The exit status as the shell gives it (128 and more: a signal; the time limit is SIGKILL); out_ and err_ are set.
int Player::shell_status(const Lines& words, const string& input) {
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

// The whole session on pipes, as far as it was told.
void Player::run() {
    done_ = started_ = true;
    string expected = raw_ ? "" : banner_.value_or(usual_banner());
    expected += expected_ + (raw_ || ended_ ? "" : "*");
    Lines words = {KPE_PROGRAM};
    words.insert(words.end(), args_.begin(), args_.end());
    status_ = shell_status(words, here(input_));
    const string failed =
        difference("standard output", here(expected), out_) + difference("standard error", here(wanted_errors_), err_);
    expect(failed.empty(), failed);
}

// What a session prints before its first prompt, when nothing was set otherwise.
string Player::usual_banner() const {
    for (const string& arg : args_) {
        if (arg[0] == '-' || arg[0] == '/') continue;
        const std::optional<string> text = content_of(dir_ / here(arg));
        const string first = text ? replaced(text->substr(0, text->find_first_of("\r\n")), "\f", "^L") : "";
        return "$ EDIT/KPE " + arg + (text ? "\n1 " + first + "\n" : "\nInput file does not exist\n[EOB]\n");
    }
    return "";
}

void Player::feed(const Step& s, const string& prompt) {
    if (!s.has_value()) throw std::runtime_error("nothing to type: \\e is an empty line");
    string last;
    for (const string& line : s.cut()) {
        last = whole_line(line);
        input_ += last;
        expected_ += prompt;
    }
    static const std::regex ENDING("\\s*(EXIT|EX|QUIT|Q)\\s*", std::regex::icase);
    ended_ = prompt == "*" && std::regex_match(last, ENDING);
}

void Player::type(const Step& s) {
    if (!terminal_) return feed(s, raw_ ? "" : "*");
    terminal_->forget_output();
    terminal_->keys(replaced(here(s.text()), "\n", "\r"));
}

// On the screen, unless the first step is typed, or goes on without waiting.
void Player::start(const string& first) {
    Command command{{KPE_PROGRAM}, {}, dir_.string(), rows_, cols_};
    command.words.insert(command.words.end(), args_.begin(), args_.end());
    if (!start_.empty()) command.words = {"/bin/sh", "-c", start_};
    for (const auto& [name, value] : environment()) command.env.push_back(name + "=" + value);
    terminal_ = std::make_unique<Terminal>(command, environment()["LC_ALL"].find("UTF-8") != string::npos);
    terminal_->settle();
    if (first != "type" && first != "send" && first != "signal" && first != "unread") terminal_->keys("CHANGE\r");
}

void Player::keys(const Step& s, bool settles) {
    terminal_->forget_output();
    string bytes;
    for (const string& line : s.lines) bytes += bytes_of(line);
    if (settles) return terminal_->keys(bytes);
    // What this began is to go on for a moment.
    terminal_->send(bytes);
    terminal_->wait_until([&] { return terminal_->took_input(); }, SOON);
    std::this_thread::sleep_for(50ms);
}

string Player::bytes_of(const string& keys) const {
    string bytes;
    for (size_t i = 0, end = 0; i < keys.size(); i = end + 1) {
        end = i;
        if (keys[i] == ' ') continue;
        int count = 1;
        if (const size_t star = keys.find_first_not_of("0123456789", i); star > i && keys[star] == '*') {
            count = std::stoi(keys.substr(i));
            i = star + 1;
        }
        const char kind = keys[i], closing = kind == '"' ? '"' : kind == '{' ? '}' : kind == '[' ? ']' : ' ';
        end = std::min(keys.find(closing, i + 1), keys.size());
        const string word = keys.substr(i, end - i), inside = unescaped(word.substr(1));
        string once;
        if (kind == '"')
            once = inside;
        else if (kind == '[')
            once = inside + "\r";
        else if (kind == '{')
            once = KEYS.at("GOLD") + KEYS.at("KP7") + inside + "\r";
        else if (kind == '^')
            once = unescaped("\\" + word);
        else if (!KEYS.contains(word))
            throw std::runtime_error("unknown key " + word);
        else
            once = KEYS.at(word)[0] == 'k' ? emulated::terminfo_string(type_, KEYS.at(word)).value() : KEYS.at(word);
        while (count-- > 0) bytes += once;
    }
    return bytes;
}

void Player::signal(const Step& s) {
    terminal_->forget_output();
    signal_ = signal_number(s.first());
    if (signal_ == GONE)
        terminal_->hang_up();
    else
        terminal_->signal(signal_);
    // It is waited for: a stopped process does nothing else.
    if (signal_ == SIGTSTP) soon([&] { return state_of(terminal_->pid()) == 'T'; }, "it does not stop");
}

void Player::resize(const string& size) {
    rows_ = std::stoi(size);
    cols_ = std::stoi(size.substr(size.find('x') + 1));
    if (!terminal_) return;
    terminal_->forget_output();
    terminal_->resize(rows_, cols_);
}

void Player::expect(bool holds, const string& what) const {
    if (!holds) throw std::runtime_error(what);
}

void Player::soon(const std::function<bool()>& holds, const string& what) {
    if (terminal_) terminal_->wait_until(holds, SOON);
    expect(holds(), what);
}

void Player::rows(const Step& s, bool reversed) {
    int number = std::stoi(s.name);
    for (string wanted : s.has_value() ? s.cut() : Lines{""}) {
        wanted = unescaped(wanted);
        const auto now = [&] { return reversed ? terminal_->reversed(number) : terminal_->row(number); };
        soon([&] { return now() == wanted; }, "");
        ++number;
    }
}

void Player::has(const Step& s, bool wanted) {
    const auto now = [&] { return s.name.empty() ? terminal_->all() : terminal_->row(std::stoi(s.name)); };
    soon([&] { return (now().find(s.first()) != string::npos) == wanted; }, wanted ? "it is not there" : "it is there");
}

// A number, or the signal that ended the session; "signal" is the one that was sent last.
void Player::status(const string& wanted) {
    status_seen_ = true;
    if (terminal_) status_ = terminal_->status();
    int number = signal_ == GONE ? SIGHUP : signal_;
    if (wanted != "signal") number = signal_number(wanted);
    const bool killed = wanted == "signal" || std::isdigit(static_cast<unsigned char>(wanted[0])) == 0;
    expect(status_ == (killed ? -number : number), "ended with status " + std::to_string(status_));
}

// Nobody else may read what is kept.
void Player::kept(const Step& s) {
    kept_seen_ = true;
    if (s.name.empty()) return;
    ++kept_;
    const fs::path where = dir_ / RESCUED;
    expect(fs::exists(where), "nothing is kept");
    expect(fs::status(where).permissions() == fs::perms::owner_all, "its directory is open to others");
    string found = "  nothing else is kept\n";
    for (const auto& entry : fs::directory_iterator(where)) {
        const string text = content_of(entry.path()).value_or("");
        if (!entry.path().filename().string().starts_with(s.name + "-20")) continue;
        expect((entry.status().permissions() & fs::perms(077)) == fs::perms::none, "it is open to others");
        found = difference("what is kept", here(s.text()), text);
        if (found.empty()) return;
    }
    throw std::runtime_error(found);
}

string Player::screen() const {
    if (!terminal_) return "";
    const emulated::Position cursor = terminal_->cursor();
    return "  screen, cursor at row " + std::to_string(cursor.row) + ", column " + std::to_string(cursor.col) +
           ":\n  |" + replaced(terminal_->all(), "\n", "\n  |") + "\n";
}

// Throws std::runtime_error with the line and what is wrong with it.
std::vector<Case> read_cases(const string& path) {
    std::vector<Case> cases;
    std::ifstream in(path);
    int number = 0;
    for (string raw; ++number, std::getline(in, raw);) {
        const string line = raw.substr(0, raw.find_last_not_of(" \t") + 1);
        if (line.empty() || line[0] == '#') continue;
        const string where = "line " + std::to_string(number);
        if (line.starts_with("== ")) {
            cases.push_back({trimmed(line.substr(3)), number, {}});
            continue;
        }
        if (cases.empty()) throw std::runtime_error(where + ": before the first case");
        std::vector<Step>& steps = cases.back().steps;
        if (line.starts_with(string(INDENT, ' ')) && !steps.empty()) {
            steps.back().lines.push_back(line.substr(INDENT));
            continue;
        }
        const size_t colon = line.find(':'), blank = line.find(' ');
        if (colon == string::npos) throw std::runtime_error(where + ": no keyword with \":\"");
        const string value = trimmed(line.substr(colon + 1));
        const string name = blank < colon ? trimmed(line.substr(blank, colon - blank)) : "";
        steps.push_back({number, line.substr(0, std::min(blank, colon)), name, {}});
        if (!value.empty()) steps.back().lines.push_back(value);
    }
    if (cases.empty()) throw std::runtime_error("no case in it");
    return cases;
}

// A case that names several terminals or signals is one for each of them.
std::vector<Case> each_of(const Case& c) {
    for (size_t i = 0; i < c.steps.size(); ++i) {
        const string& keyword = c.steps[i].keyword;
        if (keyword != "term" && keyword != "terminal" && keyword != "signal") continue;
        const Lines values = words_of(c.steps[i].first());
        if (values.size() < 2) continue;
        std::vector<Case> all;
        for (const string& value : values) {
            Case one = c;
            one.steps[i].lines = {value};
            one.title += ", " + value;
            const std::vector<Case> further = each_of(one);
            all.insert(all.end(), further.begin(), further.end());
        }
        return all;
    }
    return {c};
}

fs::path new_directory() {
    string name = fs::temp_directory_path() / "kpe_play_XXXXXX";
    if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("no temporary directory");
    return name;
}

// Returns whether it went well.
bool play_case(const string& path, const Case& c, bool keep) {
    const fs::path root = new_directory();
    Player player(c, root);
    bool well = true;
    try {
        player.play();
    } catch (const std::exception& e) {
        well = false;
        printf("%s:%d: %s\n  %s\n%s", path.c_str(), c.number, c.title.c_str(), e.what(), player.screen().c_str());
        if (keep) printf("  kept in %s\n", root.c_str());
    }
    if (well || !keep) fs::remove_all(root);
    return well;
}

// The number of failed cases.
int play_file(const string& path, bool keep) {
    int failed = 0, played = 0;
    for (const Case& c : read_cases(path)) {
        for (const Case& one : each_of(c)) {
            ++played;
            failed += play_case(path, one, keep) ? 0 : 1;
        }
    }
    printf("%s: %d cases, %d failed\n", fs::path(path).filename().c_str(), played, failed);
    return failed;
}

}  // namespace

int main(int argc, char** argv) {
    const bool keep = argc > 1 && string(argv[1]) == "-k";
    int failed = argc > (keep ? 2 : 1) ? 0 : 1;
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
