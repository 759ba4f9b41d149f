#include "script.h"

#include <array>
#include <cctype>
#include <fstream>
#include <functional>
#include <sstream>
#include <stdexcept>
#include <string_view>

namespace dialogue {
namespace {

constexpr const char* BLANKS = " \t";
constexpr std::array<std::string_view, 4> ENDINGS = {"EXIT", "EX", "QUIT", "Q"};

std::string trimmed(const std::string& s) {
    const size_t first = s.find_first_not_of(BLANKS);
    return first == std::string::npos ? "" : s.substr(first, s.find_last_not_of(BLANKS) - first + 1);
}

// One logical line: "keyword name: value", the value cut at " | " and followed by its block.
struct Directive {
    std::string keyword, name;
    std::vector<std::string> lines;  // escapes not yet replaced
    int line = 0;
};

char control_or_byte(std::string_view s, size_t& i) {
    if (s[i] == '^') return static_cast<char>(s.at(++i) & 0x1f);
    const std::string hex(s.substr(i + 1, 2));
    if (hex.size() != 2 || !isxdigit(hex[0]) || !isxdigit(hex[1])) throw std::runtime_error("\\x wants two digits");
    i += 2;
    return static_cast<char>(std::stoi(hex, nullptr, 16));
}

// Sets open when the text ends with "\c": no line end belongs behind it.
std::string unescaped(std::string_view s, bool& open) {
    std::string out;
    for (size_t i = 0; i < s.size(); ++i) {
        if (open) throw std::runtime_error("\\c is only for the end");
        if (s[i] != '\\') {
            out += s[i];
            continue;
        }
        if (++i == s.size()) throw std::runtime_error("a lone \\ at the end");
        switch (s[i]) {
            case '\\':
                out += '\\';
                break;
            case '|':
                out += '|';
                break;
            case 's':
                out += ' ';
                break;
            case 't':
                out += '\t';
                break;
            case 'r':
                out += '\r';
                break;
            case 'e':
                break;
            case 'c':
                open = true;
                break;
            case '^':
            case 'x':
                out += control_or_byte(s, i);
                break;
            default:
                throw std::runtime_error(std::string("unknown escape \\") + s[i]);
        }
    }
    return out;
}

std::string text_of(const Directive& d) {
    std::string out;
    bool open = false;
    for (const std::string& line : d.lines) {
        out += unescaped(line, open);
        if (!open) out += '\n';
    }
    return out;
}

// A value that is one line without an end.
std::string word_of(const Directive& d) {
    std::string out;
    bool open = false;
    for (const std::string& line : d.lines) out += (out.empty() ? "" : " | ") + unescaped(line, open);
    return out;
}

std::vector<std::string> cut(const std::string& value) {
    std::vector<std::string> parts;
    if (value.empty()) return parts;
    size_t from = 0;
    for (size_t bar; (bar = value.find(" | ", from)) != std::string::npos; from = bar + 3) {
        parts.push_back(trimmed(value.substr(from, bar - from)));
    }
    parts.push_back(trimmed(value.substr(from)));
    return parts;
}

// The arguments of the program: cut at blanks before escapes are replaced.
std::vector<std::string> words_of(const Directive& d) {
    std::vector<std::string> words;
    for (const std::string& line : d.lines) {
        std::istringstream in(line);
        for (std::string word; in >> word;) {
            bool open = false;
            words.push_back(unescaped(word, open));
        }
    }
    return words;
}

class Reader {
public:
    std::vector<Case> read(std::istream& in) {
        std::string line;
        for (line_ = 1; std::getline(in, line); ++line_) take(line);
        finish_case();
        return std::move(cases_);
    }
    int line() const { return where_; }  // last looked at

private:
    void take(const std::string& raw) {
        const std::string line = raw.substr(0, raw.find_last_not_of(BLANKS) + 1);
        if (line.rfind("    ", 0) == 0 && pending_) {
            pending_->lines.push_back(line.substr(4));
            return;
        }
        flush();
        where_ = line_;
        if (line.empty() || line[0] == '#') return;
        if (line.rfind("== ", 0) == 0) {
            finish_case();
            cases_.push_back({trimmed(line.substr(3)), line_, {}, {}});
            begin_session({"t.txt"});
            return;
        }
        if (line.rfind("* ", 0) == 0) {
            typed_with_answer(line.substr(2));
            return;
        }
        const size_t colon = line.find(':');
        if (colon == std::string::npos) throw std::runtime_error("no keyword with \":\"");
        if (cases_.empty()) throw std::runtime_error("a line before the first case");
        const std::string head = line.substr(0, colon);
        const size_t blank = head.find(' ');
        pending_ = Directive{head.substr(0, blank), blank == std::string::npos ? "" : trimmed(head.substr(blank)),
                             cut(trimmed(line.substr(colon + 1))), line_};
    }

    // "lines => output": what is typed at the prompt, and what that shows.
    void typed_with_answer(const std::string& line) {
        if (cases_.empty()) throw std::runtime_error("a line before the first case");
        const size_t arrow = line.find(" => ");
        apply({"type", "", cut(trimmed(line.substr(0, arrow))), line_});
        if (arrow != std::string::npos) pending_ = Directive{"shows", "", cut(trimmed(line.substr(arrow + 4))), line_};
    }

    void flush() {
        if (!pending_) return;
        const Directive d = *pending_;
        where_ = d.line;
        pending_.reset();
        apply(d);
    }

    Session& session() { return cases_.back().sessions.back(); }

    void begin_session(const std::vector<std::string>& args) {
        cases_.back().sessions.emplace_back();
        session().line = line_;
        session().args = args;
        prompt_ = "*";
        last_.clear();
        ends_.reset();
    }

    void expect(Piece::Kind kind, const std::string& text, int line) {
        session().started = true;
        if (!text.empty()) session().shown.push_back({kind, text, last_, line});
    }

    // A line on standard input, read behind the prompt.
    void feed(const Directive& d, const std::string& prompt) {
        if (d.lines.empty()) throw std::runtime_error("nothing to type: \\e is an empty line");
        for (const std::string& raw : d.lines) {
            expect(Piece::Text, prompt, d.line);
            bool open = false;
            last_ = unescaped(raw, open);
            session().input += last_ + (open ? "" : "\n");
        }
        at_prompt_ = prompt == prompt_;
    }

    // Unless the last line typed ends the session, one more prompt meets the end of input.
    void finish_session() {
        std::string word = trimmed(last_);
        for (char& c : word) c = static_cast<char>(toupper(static_cast<unsigned char>(c)));
        bool ends = false;
        for (const std::string_view ending : ENDINGS) ends = ends || (at_prompt_ && word == ending);
        if (!ends_.value_or(ends)) expect(Piece::Text, prompt_, line_);
        at_prompt_ = false;
    }

    void begin_again(const Directive& d) {
        finish_session();
        begin_session(d.lines.empty() ? std::vector<std::string>{"t.txt"} : words_of(d));
    }

    void finish_case() {
        flush();
        if (!cases_.empty()) finish_session();
    }

    void step(Step::Kind kind, const std::string& name, const std::string& text, int line) {
        (session().started ? session().after : session().before).push_back({kind, name, text, line});
    }

    void apply(const Directive& d) {
        const std::map<std::string, std::function<void()>> words = {
            {"file", [&] { step(Step::File, d.name.empty() ? "t.txt" : d.name, text_of(d), d.line); }},
            {"absent",
             [&] {
                 session().after.push_back({Step::Absent, word_of(d), "", d.line});
             }},
            {"shell", [&] { step(Step::Shell, "", text_of(d), d.line); }},
            {"args", [&] { session().args = words_of(d); }},
            {"env", [&] { set_env(d); }},
            {"before", [&] { session().preface += text_of(d); }},
            {"banner", [&] { session().banner = text_of(d); }},
            {"prompt", [&] { prompt_ = word_of(d); }},
            {"raw", [&] { be_raw(); }},
            {"type", [&] { feed(d, prompt_); }},
            {"more", [&] { feed(d, "_"); }},
            {"answer", [&] { feed(d, ""); }},
            {"shows", [&] { expect(Piece::Text, text_of(d), d.line); }},
            {"like", [&] { expect(Piece::Like, word_of(d), d.line); }},
            {"stderr", [&] { session().started = true, session().errors += text_of(d); }},
            {"status", [&] { session().started = true, session().status = std::stoi(word_of(d)); }},
            {"ends", [&] { ends_ = word_of(d) == "yes"; }},
            {"again", [&] { begin_again(d); }},
        };
        const auto word = words.find(d.keyword);
        if (word == words.end()) throw std::runtime_error("unknown keyword \"" + d.keyword + "\"");
        word->second();
    }

    void set_env(const Directive& d) {
        for (const std::string& raw : d.lines) {
            bool open = false;
            const std::string pair = unescaped(raw, open);
            const size_t equals = pair.find('=');
            if (equals == std::string::npos) throw std::runtime_error("env wants NAME=VALUE");
            cases_.back().env[pair.substr(0, equals)] = pair.substr(equals + 1);
        }
    }

    void be_raw() {
        session().banner = "";
        prompt_.clear();
        ends_ = true;
    }

    std::vector<Case> cases_;
    std::optional<Directive> pending_;
    std::string prompt_, last_;
    std::optional<bool> ends_;
    bool at_prompt_ = false;
    int line_ = 0, where_ = 0;
};

}  // namespace

std::vector<Case> read_cases(const std::string& path) {
    std::ifstream in(path);
    if (!in) throw std::runtime_error("cannot be read");
    Reader reader;
    try {
        return reader.read(in);
    } catch (const std::exception& e) {
        throw std::runtime_error("line " + std::to_string(reader.line()) + ": " + e.what());
    }
}

std::string shown_as(const std::string& text, const std::string& indent, size_t limit) {
    std::string out;
    size_t from = 0, lines = 0;
    for (; from < text.size() && lines < limit; ++lines) {
        const size_t end = std::min(text.find('\n', from), text.size());
        out += indent;
        for (size_t i = from; i < end; ++i) {
            const auto byte = static_cast<unsigned char>(text[i]);
            char hex[8];
            snprintf(hex, sizeof hex, "\\x%02x", byte);
            if (byte == '\\')
                out += "\\\\";
            else if (byte == '\t')
                out += "\\t";
            else if (byte == ' ' && i + 1 == end)
                out += "\\s";
            else if (byte < ' ' || byte > '~')
                out += hex;
            else
                out += text[i];
        }
        out += end == text.size() ? "\\c\n" : "\n";
        from = end + 1;
    }
    if (from < text.size()) out += indent + "...\n";
    return out.empty() ? indent + "(nothing)\n" : out;
}

}  // namespace dialogue
