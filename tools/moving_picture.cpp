// Draws a session as a picture that moves: kpe_moving_picture SCRIPT FILE writes an SVG to standard output. The program
// runs on the terminal of the tests, on a copy of FILE, and what the screen shows after each step is a frame. A line of
// the script is a caption, a bar, and what is typed, with escapes as in tests/sessions ("\x1b"); behind a further bar
// may stand how long it is shown, in milliseconds. What is typed behind the word "type" comes letter by letter.

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "session_file.h"
#include "terminal.h"

namespace fs = std::filesystem;

namespace {

using std::string;

constexpr int ROWS = 16, COLUMNS = 80, CELL_WIDTH = 9, CELL_HEIGHT = 19, MARGIN = 14, CAPTION = 34;
constexpr int LETTER_TIME = 90, STEP_TIME = 1100;  // in milliseconds

constexpr const char* STYLE =
    "<style>\n"
    "rect.paper{fill:#1d1f21}rect.cursor{fill:#f2d675}rect.reversed{fill:#d8d8d0}\n"
    "text{font-family:DejaVu Sans Mono,Menlo,Consolas,monospace;font-size:15px;fill:#d8d8d0;white-space:pre}\n"
    "text.reversed,text.cursor{fill:#1d1f21}text.caption{fill:#f2d675;font-family:sans-serif}\n"
    "</style>\n";

string escaped(const string& text) {
    return replaced(replaced(replaced(text, "&", "&amp;"), "<", "&lt;"), ">", "&gt;");
}

// A stretch of cells of one row. All of them have their own width, whatever the font is.
string cells(const char* style, int row, size_t column, const string& text) {
    if (text.find_first_not_of(' ') == text.npos) return "";
    char tag[200];
    std::snprintf(tag, sizeof tag, "<text class=\"%s\" x=\"%zu\" y=\"%d\" textLength=\"%zu\">", style,
                  MARGIN + column * CELL_WIDTH, MARGIN + row * CELL_HEIGHT + 15, text.size() * CELL_WIDTH);
    return tag + escaped(text) + "</text>\n";
}

string box(const char* style, int row, size_t column, size_t width) {
    char tag[200];
    std::snprintf(tag, sizeof tag, "<rect class=\"%s\" x=\"%zu\" y=\"%d\" width=\"%zu\" height=\"%d\"/>\n", style,
                  MARGIN + column * CELL_WIDTH, MARGIN + row * CELL_HEIGHT, width * CELL_WIDTH, CELL_HEIGHT);
    return tag;
}

// What the terminal shows. The texts are ASCII, so a byte is a cell.
string picture(const Terminal& terminal, const string& caption) {
    string all;
    for (int row = 0; row < ROWS; ++row) {
        const string text = terminal.row(row), marks = terminal.reversed(row);
        const size_t first = marks.find('R');
        if (first == marks.npos) {
            all += cells("plain", row, 0, text);
            continue;
        }
        const size_t width = marks.size() - first;
        all += cells("plain", row, 0, text.substr(0, first)) + box("reversed", row, first, width);
        if (text.size() > first) all += cells("reversed", row, first, text.substr(first, width));
        if (text.size() > marks.size()) all += cells("plain", row, marks.size(), text.substr(marks.size()));
    }
    const Lines at = split(terminal.cursor(), ",");
    const int row = std::stoi(at[0]);
    const size_t column = std::stoul(at[1]);
    all += box("cursor", row, column, 1);
    if (terminal.row(row).size() > column) all += cells("cursor", row, column, terminal.row(row).substr(column, 1));
    char tag[200];
    std::snprintf(tag, sizeof tag, "<text class=\"caption\" x=\"%d\" y=\"%d\">", MARGIN,
                  MARGIN + ROWS * CELL_HEIGHT + 24);
    return all + tag + escaped(caption) + "</text>\n";
}

struct Frame {
    string picture;
    int time;  // in milliseconds
};

std::vector<Frame> frames_of(const string& script, Terminal& terminal) {
    std::vector<Frame> frames;
    std::ifstream in(script);
    for (string line; std::getline(in, line);) {
        if (line.empty() || line[0] == '#') continue;
        Lines parts = split(line, " | ");
        for (string& part : parts) part.erase(part.find_last_not_of(' ') + 1);
        const int time = parts.size() > 2 ? std::stoi(parts[2]) : STEP_TIME;
        const bool letters = parts.at(1).starts_with("type ");
        const string bytes = unescaped(letters ? parts[1].substr(5) : parts[1]);
        for (size_t i = 0; letters && i + 1 < bytes.size(); ++i) {
            terminal.send(bytes.substr(i, 1));
            terminal.settle();
            frames.push_back({picture(terminal, parts[0]), LETTER_TIME});
        }
        terminal.send(letters ? bytes.substr(bytes.size() - 1) : bytes);
        terminal.settle();
        frames.push_back({picture(terminal, parts[0]), time});
    }
    return frames;
}

// Each frame is visible for its time of the whole. Where nothing moves the last one is seen.
void write_svg(const std::vector<Frame>& frames) {
    const int width = COLUMNS * CELL_WIDTH + 2 * MARGIN, height = ROWS * CELL_HEIGHT + 2 * MARGIN + CAPTION;
    int all = 0, begun = 0;
    for (const Frame& frame : frames) all += frame.time;
    std::printf(
        "<svg xmlns=\"http://www.w3.org/2000/svg\" xml:space=\"preserve\" width=\"%d\" height=\"%d\" viewBox=\"0 0 %d "
        "%d\">\n",
        width, height, width, height);
    std::printf("<title>A session of kpe</title>\n%s<rect class=\"paper\" width=\"%d\" height=\"%d\" rx=\"6\"/>\n",
                STYLE, width, height);
    for (const Frame& frame : frames) {
        const int ended = begun + frame.time;
        const char* const at_rest = &frame == &frames.back() ? "visible" : "hidden";
        std::printf(
            "<g visibility=\"%s\"><animate attributeName=\"visibility\" calcMode=\"discrete\" dur=\"%dms\" "
            "repeatCount=\"indefinite\" values=\"hidden;visible;hidden\" keyTimes=\"0;%.4f;%.4f\"/>\n%s</g>\n",
            at_rest, all, static_cast<double>(begun) / all, static_cast<double>(ended) / all, frame.picture.c_str());
        begun = ended;
    }
    std::printf("</svg>\n");
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) return 2;
    string directory = fs::temp_directory_path() / "kpe_picture_XXXXXX";
    if (mkdtemp(directory.data()) == nullptr) return 1;
    const string name = fs::path(argv[2]).filename();
    fs::copy(argv[2], fs::path(directory) / name);
    const Command command{{KPE_PROGRAM, name},
                          {"HOME=" + directory, "PATH=/usr/bin:/bin", "LC_ALL=C.UTF-8", "TERM=xterm-256color"},
                          directory,
                          ROWS,
                          COLUMNS};
    {
        Terminal terminal(command, /*utf8=*/true);
        terminal.settle();
        write_svg(frames_of(argv[1], terminal));
    }
    fs::remove_all(directory);
    return 0;
}
