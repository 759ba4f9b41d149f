#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <regex>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "dialogues/lines.h"
#include "screens/terminal.h"

// Plays the sessions of screens/*.txt, which tests/README.md describes.

using namespace screens;

namespace {

using std::string;
using Words = std::vector<string>;

const std::map<string, string> KEYS = {
    {"GOLD", GOLD},         {"PF2", PF2},       {"PF3", PF3},        {"PF4", PF4},        {"KP0", KP0},
    {"KP1", KP1},           {"KP2", KP2},       {"KP3", KP3},        {"KP4", KP4},        {"KP5", KP5},
    {"KP6", KP6},           {"KP7", KP7},       {"KP8", KP8},        {"KP9", KP9},        {"KP-", KP_MINUS},
    {"KP,", KP_COMMA},      {"KP.", KP_PERIOD}, {"ENTER", KP_ENTER}, {"KP+", KP_PLUS},    {"KP/", KP_SLASH},
    {"KP*", KP_STAR},       {"UP", UP},         {"DOWN", DOWN},      {"LEFT", LEFT},      {"RIGHT", RIGHT},
    {"HOME", HOME},         {"END", END},       {"PGUP", PAGE_UP},   {"PGDN", PAGE_DOWN}, {"INS", INSERT},
    {"DEL", DELETE},        {"RET", RETURN},    {"TAB", TAB},        {"ESC", ESC},        {"BS", BACKSPACE},
    {"kbs", key_of("kbs")},
};

string lines_of(const string& value) {
    string text;
    for (const string& line : split(value, " | ")) text += unescaped(line) + "\n";
    return text;
}

class Player {
public:
    Player(const Setup& setup) : s_(setup), rows_(setup.rows) {}

    void step(const string& line) {
        const size_t arrow = line.find("=>");
        s_.forget_output();
        type(line.substr(0, arrow));
        if (arrow == string::npos) return;
        for (const string& wanted : split(line.substr(arrow + 3), " ; ")) expect(wanted);
    }

private:
    void type(const string& line) {
        string keys;
        for (size_t i = 0, end = 0; i < line.size(); i = end + 1) {
            if (line[i] == ' ') {
                end = i;
                continue;
            }
            int count = 1;
            if (const size_t star = line.find_first_not_of("0123456789", i); star > i && line[star] == '*') {
                count = std::stoi(line.substr(i));
                i = star + 1;
            }
            const char kind = line[i], closing = kind == '"' ? '"' : kind == '{' ? '}' : kind == '[' ? ']' : ' ';
            end = std::min(line.find(closing, i + 1), line.size());
            const string word = line.substr(i, end - i), rest = unescaped(word.substr(1));
            if (kind == '@' || kind == '%' || kind == '&') {
                if (!keys.empty()) s_.keys(keys);
                keys.clear();
            }
            if (kind == '@') {
                rows_ = std::stoi(rest);
                s_.resize(rows_, std::stoi(rest.substr(rest.find('x') + 1)));
            } else if (kind == '%') {
                s_.signal(std::stoi(rest));
            } else if (kind == '&') {
                s_.send(KEYS.at(rest));
                std::this_thread::sleep_for(200ms);
            } else {
                keys += times(count, kind == '"'   ? rest
                                     : kind == '{' ? command(rest)
                                     : kind == '[' ? rest + RETURN
                                     : kind == '^' ? Ctrl(word.at(1))
                                                   : KEYS.at(word));
            }
        }
        if (!keys.empty()) s_.keys(keys);
    }

    // What comes a little later is waited for.
    void expect(const string& wanted) {
        SCOPED_TRACE(wanted);
        const size_t colon = wanted.find_first_of(":~!");
        const string what = wanted.substr(0, colon);
        const string value = colon == string::npos ? "" : unescaped(wanted.substr(std::min(colon + 2, wanted.size())));
        if (what == "running") {
            EXPECT_TRUE(s_.running());
        } else if (colon == string::npos) {
            const Position place{std::stoi(what), std::stoi(what.substr(what.find(',') + 1))};
            EXPECT_EQ(s_.cursor(), place);
        } else if (what.starts_with("file")) {
            EXPECT_EQ(s_.files().get(what.size() > 5 ? what.substr(5) : "t.txt"),
                      value.empty() ? "" : lines_of(wanted.substr(colon + 2)));
        } else if (what.starts_with("sent ")) {
            const auto holds = [&] { return s_.sent(unescaped(what.substr(5))) == std::stoul(value); };
            if (!holds()) s_.wait_until(holds, 2s);
        } else if (what[0] == 'R') {
            EXPECT_EQ(s_.reversed(std::stoi(what.substr(1))), value);
        } else if (what == "status") {
            EXPECT_EQ(s_.status(), std::stoi(value));
        } else if (what == "bells" || what == "flashes") {
            EXPECT_EQ(what == "bells" ? s_.bells() : s_.flashes(), std::stoul(value));
        } else if (what == "bytes") {
            EXPECT_LT(s_.output().size(), std::stoul(value));
        } else {
            const int row = what == "M" ? rows_ - 1 : what == "S" ? rows_ - 2 : std::stoi(what);
            const auto holds = [&] {
                return wanted[colon] == ':' ? s_.row(row) == value : s_.has(row, value) == (wanted[colon] == '~');
            };
            if (!holds()) s_.wait_until(holds, 2s);
            EXPECT_TRUE(holds());
        }
    }
    Terminal s_;
    int rows_;
};

struct Case {
    string title;
    int line = 0;
    Setup setup = {.files = {}};
    string fifo = {};
    Words types = {"xterm-256color"}, sizes = {"24x80"};
    std::vector<std::pair<int, string>> steps = {};  // each with its line in the file

    void add(int number, const string& text) {
        if (std::islower(static_cast<unsigned char>(text[0])) == 0) {
            for (const string& step : split(text, " >> ")) steps.emplace_back(number, step);
            return;
        }
        static const std::regex FURTHER("  (?=(file|lines|args|env|line|type|size|fifo|shell)[^:|]*:)");
        for (auto piece = std::sregex_token_iterator(text.begin(), text.end(), FURTHER, -1);
             piece != std::sregex_token_iterator(); ++piece)
            prepare(*piece);
    }
    void prepare(const string& text) {
        const size_t colon = text.find(':');
        const string key = text.substr(0, std::min(text.find(' '), colon));
        const string name = key.size() < colon ? text.substr(key.size() + 1, colon - key.size() - 1) : "t.txt";
        const string value = colon + 2 < text.size() ? text.substr(colon + 2) : "";
        if (key == "file")
            setup.files[unescaped(name)] = lines_of(value);
        else if (key == "lines")
            setup.files["t.txt"] += numbered_lines(std::stoi(value));
        else if (key == "type" || key == "size")
            (key == "type" ? types : sizes) = split(value, " ");
        else if (key == "fifo")
            fifo = value;
        else if (key == "args")
            setup.args = split(unescaped(value), " ");
        else if (key == "shell")
            setup.program = "/bin/sh", setup.args = {"-c", value}, setup.env["KPE"] = KPE_PROGRAM;
        else if (key == "env")
            setup.env[value.substr(0, value.find('='))] = value.substr(value.find('=') + 1);
        else if (key == "line")
            setup.change = false;
        else
            throw std::runtime_error("unknown keyword " + key);
    }
    void play() {
        for (const string& type : types) {
            for (const string& size : sizes) {
                SCOPED_TRACE(type + " " + size);
                setup.type = type;
                setup.rows = std::stoi(size);
                setup.cols = std::stoi(size.substr(size.find('x') + 1));
                const Scratch directory;
                if (!fifo.empty()) mkfifo(directory.path(fifo).c_str(), 0600);
                setup.directory = &directory;
                Player player(setup);
                for (const auto& [number, text] : steps) {
                    SCOPED_TRACE("line " + std::to_string(number) + ": " + text);
                    player.step(text);
                }
            }
        }
    }
};

std::vector<Case> cases_of(const string& path) {
    std::vector<Case> cases;
    std::ifstream in(path);
    int number = 0;
    for (string line; ++number, std::getline(in, line);) {
        if (line.starts_with("== "))
            cases.push_back({line.substr(3), number});
        else if (!line.empty() && line[0] != '#')
            cases.at(cases.size() - 1).add(number, line);
    }
    return cases;
}

const string FOLDER = KPE_SOURCE_DIR "/tests/screens/";

Words topics() {
    Words names;
    for (const auto& entry : std::filesystem::directory_iterator(FOLDER))
        if (entry.path().extension() == ".txt") names.push_back(entry.path().stem());
    std::sort(names.begin(), names.end());
    return names;
}

class Sessions : public testing::TestWithParam<string> {};

TEST_P(Sessions, Play) {
    const string path = FOLDER + GetParam() + ".txt";
    std::vector<Case> cases = cases_of(path);
    ASSERT_FALSE(cases.empty());
    for (Case& c : cases) {
        SCOPED_TRACE(path + ":" + std::to_string(c.line) + ": " + c.title);
        c.play();
    }
}

string topic(const testing::TestParamInfo<string>& name) { return name.param; }
INSTANTIATE_TEST_SUITE_P(On, Sessions, testing::ValuesIn(topics()), topic);

}  // namespace
