#include "session_file.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>

using std::string;

namespace {

constexpr size_t INDENT = 8;  // of the further lines of a value

string trimmed(const string& s) {
    const size_t first = s.find_first_not_of(" \t");
    return first == string::npos ? "" : s.substr(first, s.find_last_not_of(" \t") - first + 1);
}

// The columns of a table's row lie two blanks apart, or more.
Lines columns_of(const string& row) {
    Lines columns;
    for (const string& piece : split(row, "  "))
        if (!trimmed(piece).empty()) columns.push_back(trimmed(piece));
    return columns;
}

// The case with the columns of a row for $1, $2 and so on.
Case filled(Case c, const string& row) {
    const Lines columns = columns_of(row);
    for (Step& s : c.steps) {
        for (size_t i = columns.size(); i-- > 0;) {
            const string place = "$" + std::to_string(i + 1);
            s.name = replaced(s.name, place, columns[i]);
            for (string& line : s.lines) line = replaced(line, place, columns[i]);
        }
    }
    c.title += ": " + row.substr(0, row.find("  "));
    return c;
}

void add_each_of(const Case& c, std::vector<Case>& all) {
    for (size_t i = 0; i < c.steps.size(); ++i) {
        const string& keyword = c.steps[i].keyword;
        const bool table = keyword == "each";
        if (!table && keyword != "term" && keyword != "terminal" && keyword != "signal") continue;
        const Lines rows = table ? c.steps[i].lines : words_of(c.steps[i].first());
        if (!table && rows.size() < 2) continue;
        for (const string& row : rows) {
            Case one = c;
            if (table) {
                one.steps.erase(one.steps.begin() + static_cast<ptrdiff_t>(i));
                one = filled(one, row);
            } else {
                one.steps[i].lines = {row};
                one.title += ", " + row;
            }
            add_each_of(one, all);
        }
        return;
    }
    all.push_back(c);
}

}  // namespace

Lines split(const string& text, const string& at) {
    Lines parts;
    size_t from = 0;
    for (size_t end; (end = text.find(at, from)) != string::npos; from = end + at.size())
        parts.push_back(text.substr(from, end - from));
    parts.push_back(text.substr(from));
    return parts;
}

string replaced(string text, const string& from, const string& to) {
    for (size_t at = 0; (at = text.find(from, at)) != string::npos; at += to.size()) text.replace(at, from.size(), to);
    return text;
}

Lines words_of(const string& text) {
    std::istringstream words(text);
    return {std::istream_iterator<string>(words), {}};
}

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

Lines Step::cut() const {
    Lines parts;
    if (lines.empty()) return parts;
    for (const string& part : split(lines[0], " | ")) parts.push_back(trimmed(part));
    parts.insert(parts.end(), lines.begin() + 1, lines.end());
    return parts;
}

// A line without its end has "\c" there.
string Step::text() const {
    string all;
    for (const string& line : cut())
        all += line.ends_with("\\c") ? unescaped(line.substr(0, line.size() - 2)) : unescaped(line) + '\n';
    return all;
}

string Step::command() const {
    string all;
    for (const string& line : lines) all += line + '\n';
    return all;
}

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
    std::vector<Case> all;
    for (const Case& c : cases) add_each_of(c, all);
    if (all.empty()) throw std::runtime_error("no case in it");
    return all;
}
