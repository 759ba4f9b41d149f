// Plays dialogue files, as tests/README.md describes them, against the program: kpe_play [-k] FILE...
// -k keeps the directories of failed cases.

#include <sys/wait.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <regex>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "dialogues/lines.h"

namespace fs = std::filesystem;

namespace {

using std::string;
using Lines = std::vector<string>;

// In expected output: the rest of the line is a regular expression; any lines may be here.
constexpr char LIKE = '\1';
const string SKIPS = "\2";
constexpr size_t SHOWN_LINES = 12;

string trimmed(const string& s) {
    const size_t first = s.find_first_not_of(" \t");
    return first == string::npos ? "" : s.substr(first, s.find_last_not_of(" \t") - first + 1);
}

string replaced(string text, const string& from, const string& to) {
    for (size_t at = 0; (at = text.find(from, at)) != string::npos; at += to.size()) text.replace(at, from.size(), to);
    return text;
}

// With its end, unless "\c" takes that away.
string whole_line(const string& line) {
    return line.ends_with("\\c") ? unescaped(line.substr(0, line.size() - 2)) : unescaped(line) + '\n';
}

string text_of(const Lines& lines) {
    string text;
    for (const string& line : lines) text += whole_line(line);
    return text;
}

// "keyword name: value", the value cut at " | " and followed by its block.
struct Directive {
    string keyword, name;
    Lines value;
};

// A file that is made before the session or compared after it, one that must be absent, or a command of the shell.
struct Step {
    string keyword, name, text;
};

struct Session {
    Lines args = {"t.txt"};
    std::vector<Step> before, after;
    std::optional<string> banner;  // none: the usual one, from the file on disk
    string input, expected, errors, last;
    int status = 0;
    bool raw = false, started = false, ended = false;

    void feed(const Lines& lines, const string& prompt) {
        if (lines.empty()) throw std::runtime_error("nothing to type: \\e is an empty line");
        for (const string& line : lines) {
            last = whole_line(line);
            input += last;
            expected += prompt;
        }
        static const std::regex ENDING("\\s*(EXIT|EX|QUIT|Q)\\s*", std::regex::icase);
        ended = prompt == "*" && std::regex_match(last, ENDING);
    }
};

struct Case {
    string title;
    int line = 0;
    Lines env;
    std::vector<Session> sessions = {Session{}};

    void apply(const Directive& d) {
        static const std::set<string> PREPARING = {"file", "shell", "absent", "args", "env", "banner", "raw", "again"};
        Session& now = sessions.back();
        now.started = now.started || PREPARING.count(d.keyword) == 0;
        const string text = text_of(d.value), word = text.substr(0, text.find('\n'));
        if (d.keyword == "file" || d.keyword == "shell" || d.keyword == "absent") {
            const bool later = now.started || d.keyword == "absent";
            const string name = d.keyword == "absent" ? word : d.name.empty() ? "t.txt" : d.name;
            (later ? now.after : now.before).push_back({d.keyword, name, text});
        } else if (d.keyword == "args" || d.keyword == "again") {
            if (d.keyword == "again") sessions.emplace_back();
            std::istringstream words(d.value.empty() ? "t.txt" : d.value[0]);
            sessions.back().args = {std::istream_iterator<string>(words), {}};
        } else if (d.keyword == "env") {
            env.push_back(word);
        } else if (d.keyword == "*") {
            now.feed(d.value, now.raw ? "" : "*");
        } else if (d.keyword == "answer") {
            now.feed(d.value, "");
        } else if (d.keyword == "more") {
            now.feed(d.value, "_");
        } else if (d.keyword == "shows") {
            now.expected += text;
        } else if (d.keyword == "like") {
            now.expected += LIKE + text;
        } else if (d.keyword == "skips") {
            now.expected += SKIPS + '\n';
        } else if (d.keyword == "banner") {
            now.banner = text;
        } else if (d.keyword == "raw") {
            now.raw = true;
        } else if (d.keyword == "stderr") {
            now.errors = text;
        } else if (d.keyword == "status") {
            now.status = std::stoi(word);
        } else {
            throw std::runtime_error("unknown keyword " + d.keyword);
        }
    }
};

Lines cut(const string& value) {
    Lines parts = split(value, " | ");
    for (string& part : parts) part = trimmed(part);
    return trimmed(value).empty() ? Lines{} : parts;
}

// What may follow in the same line, behind two blanks.
const std::regex FURTHER("  (?=\\* |(answer|more|shows|like|file|absent|stderr|status|banner|args|env)[^:|]*:)");

// Throws std::runtime_error with the line and what is wrong with it.
std::vector<Case> read_cases(const string& path) {
    std::vector<Case> cases;
    std::vector<Directive> found;  // of the last line and what follows it
    std::ifstream in(path);
    int number = 0;
    const auto flush = [&] {
        if (!found.empty() && cases.empty()) throw std::runtime_error("a line before the first case");
        for (const Directive& d : found) cases.back().apply(d);
        found.clear();
    };
    try {
        for (string raw; ++number, std::getline(in, raw);) {
            const string line = raw.substr(0, raw.find_last_not_of(" \t") + 1);
            if (line.starts_with("    ") && !found.empty()) {
                found.back().value.push_back(line.substr(4));
                continue;
            }
            flush();
            if (line.empty() || line[0] == '#') continue;
            if (line.starts_with("== ")) {
                cases.push_back({trimmed(line.substr(3)), number, {}});
                continue;
            }
            for (auto piece = std::sregex_token_iterator(line.begin(), line.end(), FURTHER, -1);
                 piece != std::sregex_token_iterator(); ++piece) {
                const string text = *piece;
                const size_t arrow = text.find(" => "), colon = text.find(':');
                const string head = text.substr(0, colon);
                const size_t blank = std::min(head.find(' '), head.size());
                if (text.starts_with("* ")) {
                    found.push_back({"*", "", cut(text.substr(2, arrow == string::npos ? arrow : arrow - 2))});
                    if (arrow != string::npos) found.push_back({"shows", "", cut(text.substr(arrow + 4))});
                } else if (colon == string::npos) {
                    throw std::runtime_error("no keyword with \":\"");
                } else {
                    found.push_back({head.substr(0, blank), trimmed(head.substr(blank)), cut(text.substr(colon + 1))});
                }
            }
        }
        flush();
    } catch (const std::exception& e) {
        throw std::runtime_error("near line " + std::to_string(number) + ": " + e.what());
    }
    if (cases.empty()) throw std::runtime_error("no case in it");
    return cases;
}

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
    return "  " + of + ", expected from line " + std::to_string(i + 1) + " on:\n" + shown(w, i) + "  got:\n" +
           shown(g, i);
}

std::optional<string> content_of(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in || fs::is_directory(path)) return std::nullopt;
    return string(std::istreambuf_iterator<char>(in), {});
}

// Plays one case in a directory of its own, which is its home as well. Failures are added up in failed.
class Stage {
public:
    explicit Stage(const Case& c) : case_(c), root_(fs::temp_directory_path() / "kpe_play_XXXXXX") {
        string name = root_.string();
        if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("no temporary directory");
        root_ = name;
        fs::create_directory(dir_ = root_ / "home");
        for (const Session& session : c.sessions) {
            if (failed.empty()) play(session);
        }
    }
    const fs::path& root() const { return root_; }
    string failed;

private:
    string here(const string& text) const { return replaced(text, "$DIR", dir_.string()); }
    static string quoted(const string& word) { return " '" + replaced(word, "'", "'\\''") + "'"; }

    // The exit status as the shell gives it (128 and more: a signal; the time limit is SIGKILL); out and err are set.
    int run(const Lines& words, const string& input) {
        std::ofstream(root_ / "in", std::ios::binary) << input;
        string command = "cd" + quoted(dir_) + " && exec timeout -s KILL 20 env -i LC_ALL=C TERM=vt100";
        for (const char* name : {"ASAN_OPTIONS", "LSAN_OPTIONS", "UBSAN_OPTIONS"})
            if (const char* value = getenv(name)) command += quoted(string(name) + "=" + value);
        command += quoted("HOME=" + dir_.string()) + quoted(string("SRC=") + KPE_SOURCE_DIR);
        command += " PATH=/usr/local/bin:/usr/bin:/bin";
        for (const string& pair : case_.env) command += quoted(here(pair));
        for (const string& word : words) command += quoted(here(word));
        const int how = std::system((command + " <../in >../out 2>../err").c_str());
        out_ = content_of(root_ / "out").value();
        err_ = content_of(root_ / "err").value();
        return WIFEXITED(how) ? WEXITSTATUS(how) : 128 + WTERMSIG(how);
    }

    void play(const Session& session) {
        for (const Step& step : session.before) {
            if (step.keyword == "file")
                std::ofstream(dir_ / step.name, std::ios::binary) << here(step.text);
            else
                shell(step);
        }
        string expected = session.raw ? "" : session.banner.value_or(usual_banner(session));
        expected += session.expected + (session.raw || session.ended ? "" : "*");
        Lines words = {KPE_PROGRAM};
        words.insert(words.end(), session.args.begin(), session.args.end());
        const int status = run(words, here(session.input));
        failed += difference("standard output", here(expected), out_) +
                  difference("standard error", here(session.errors), err_);
        if (status != session.status) failed += "  ended with status " + std::to_string(status) + "\n";
        for (const Step& step : session.after) {
            const std::optional<string> found = content_of(dir_ / step.name);
            if (step.keyword == "shell")
                shell(step);
            else if (step.keyword == "absent" ? fs::exists(fs::symlink_status(dir_ / step.name)) : !found)
                failed += "  " + step.name + (found ? " is there\n" : " is missing\n");
            else if (step.keyword == "file")
                failed += difference(step.name, here(step.text), *found);
        }
    }

    void shell(const Step& step) {
        if (run({"/bin/sh", "-e", "-c", step.text}, "") != 0) failed += "  the shell failed: " + out_ + err_;
    }

    // What a session prints before its first prompt, when nothing was set otherwise.
    string usual_banner(const Session& session) const {
        for (const string& arg : session.args) {
            if (arg[0] == '-' || arg[0] == '/') continue;
            const std::optional<string> text = content_of(dir_ / here(arg));
            const string first = text ? replaced(text->substr(0, text->find_first_of("\r\n")), "\f", "^L") : "";
            return "$ EDIT/KPE " + arg + (text ? "\n1 " + first + "\n" : "\nInput file does not exist\n[EOB]\n");
        }
        return "";
    }

    const Case& case_;
    fs::path root_, dir_;
    string out_, err_;
};

// The number of failed cases.
int play_file(const string& path, bool keep) {
    int failed = 0;
    const std::vector<Case> cases = read_cases(path);
    for (const Case& c : cases) {
        const Stage stage(c);
        if (!stage.failed.empty()) {
            ++failed;
            printf("%s:%d: %s\n%s", path.c_str(), c.line, c.title.c_str(), stage.failed.c_str());
            if (keep) printf("  kept in %s\n", stage.root().c_str());
        }
        if (stage.failed.empty() || !keep) fs::remove_all(stage.root());
    }
    printf("%s: %zu cases, %d failed\n", fs::path(path).filename().c_str(), cases.size(), failed);
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
