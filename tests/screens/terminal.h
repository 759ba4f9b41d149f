#pragma once

#include <filesystem>
#include <map>
#include <memory>

#include "../terminal.h"
#include "unit/scratch.h"

// Sessions on a terminal for tests in C++: begun in line mode, or on the screen if `change` is left as it is.
namespace screens {

using namespace std::chrono_literals;

inline const std::string GOLD = "\033OP", PF2 = "\033OQ", PF3 = "\033OR", KP0 = "\033Op", KP7 = "\033Ow", RETURN = "\r";

inline std::string Ctrl(char letter) { return std::string(1, static_cast<char>(letter & 0x1f)); }
inline std::string command(const std::string& text) { return GOLD + KP7 + text + RETURN; }
inline std::string numbered_lines(int count) {
    std::string text;
    for (int i = 1; i <= count; ++i) text += "line " + std::to_string(i) + "\n";
    return text;
}

struct Setup {
    std::map<std::string, std::string> files = {};
    std::vector<std::string> args = {"t.txt"};
    std::map<std::string, std::string> env = {};
    bool change = true;
    const Scratch* directory = nullptr;  // none: one of its own
    std::string program = KPE_PROGRAM;
};

class Terminal : public emulated::Terminal {
public:
    explicit Terminal(const Setup& setup) : Terminal(setup, std::make_unique<Scratch>()) {}
    const Scratch& files() const { return *files_; }
    bool has(int number, std::string_view text) const { return row(number).find(text) != std::string::npos; }

private:
    Terminal(const Setup& setup, std::unique_ptr<Scratch> own)
        : emulated::Terminal(started(setup, setup.directory ? *setup.directory : *own), true),
          own_(std::move(own)),
          files_(setup.directory ? setup.directory : own_.get()) {
        settle();
        if (setup.change) keys("CHANGE" + RETURN);
    }
    static Command started(const Setup& setup, const Scratch& files) {
        for (const auto& [name, bytes] : setup.files) files.put(name, bytes);
        std::map<std::string, std::string> env = {
            {"HOME", files.root()}, {"LC_ALL", "C.UTF-8"}, {"PATH", "/usr/bin:/bin"}, {"TERM", "xterm-256color"}};
        for (const auto& [name, value] : setup.env) env[name] = value;
        Command result{{setup.program}, {}, files.root()};
        result.words.insert(result.words.end(), setup.args.begin(), setup.args.end());
        for (const auto& [name, value] : env) result.env.push_back(name + "=" + value);
        return result;
    }
    std::unique_ptr<Scratch> own_;
    const Scratch* files_;
};

}  // namespace screens
