// Draws docs/manual/keypad.svg: what the keypad and the editing keys do, plain and after GOLD, by the names that the
// program itself uses. With the argument "table" it writes the table of docs/manual/keypad.md, which names the keys
// that the picture leaves out; with "functions" the line of each function there that names its keys. All go to standard
// output; tests compare them with the documents.

#include <cstdio>
#include <curses.h>
#include <map>
#include <string>
#include <string_view>

#include "editor/on_screen.h"
#include "screen/key_layers.h"
#include "screen/n3_kpe_keymap.h"
#include "system/ascii.h"

namespace {

constexpr int CELL_WIDTH = 154, CELL_HEIGHT = 74, GAP = 6, MARGIN = 16, TITLE = 34;

// Where a key stands, in cells, and how many it takes.
struct Key {
    int code, col, row, cols = 1, rows = 1;
};
// clang-format off
constexpr Key KEYPAD[] = {
    {KEY_F(1), 0, 0},      {KEY_F(2), 1, 0},      {KEY_F(3), 2, 0},            {KEY_F(4), 3, 0},
    {KPE_KP7, 0, 1},       {KPE_KP8, 1, 1},       {KPE_KP9, 2, 1},             {KPE_KP_MINUS, 3, 1},
    {KPE_KP4, 0, 2},       {KPE_KP5, 1, 2},       {KPE_KP6, 2, 2},             {KPE_KP_COMMA, 3, 2},
    {KPE_KP1, 0, 3},       {KPE_KP2, 1, 3},       {KPE_KP3, 2, 3},             {KPE_KP_ENTER, 3, 3, 1, 2},
    {KPE_KP0, 0, 4, 2},                           {KPE_KP_PERIOD, 2, 4},
};
constexpr Key EDITING[] = {
    {KEY_IC, 0, 0},        {KEY_HOME, 1, 0},      {KEY_PPAGE, 2, 0},
    {KEY_DC, 0, 1},        {KEY_END, 1, 1},       {KEY_NPAGE, 2, 1},
                           {KEY_UP, 1, 3},
    {KEY_LEFT, 0, 4},      {KEY_DOWN, 1, 4},      {KEY_RIGHT, 2, 4},
};
// clang-format on

std::string escaped(const char* text) {
    std::string result;
    for (; *text; ++text) {
        switch (*text) {
            case '&':
                result += "&amp;";
                break;
            case '<':
                result += "&lt;";
                break;
            case '>':
                result += "&gt;";
                break;
            default:
                result += *text;
        }
    }
    return result;
}

void draw_text(const char* style, int x, int y, const char* text) {
    if (*text) std::printf("<text class=\"%s\" x=\"%d\" y=\"%d\">%s</text>\n", style, x, y, escaped(text).c_str());
}

// The key's own label, and those of the keys of the layers that stand for it.
std::string label_of(int code) {
    std::string label = kpe_key_label(code);
    for (const auto [key, stands_for] : kpe_alt_layer()) {
        if (stands_for == code) label += " · " + kpe_key_name(key);
    }
    for (const auto [key, stands_for] : kpe_editing_layer()) {
        if (stands_for == code) label += " · " + kpe_key_name(key);
    }
    for (const auto [key, stands_for] : kpe_gold_arrows()) {
        if (stands_for == code) label += " · GOLD " + kpe_key_name(key);
    }
    return label;
}

// Three lines: the key's labels, what it does, and what it does after GOLD on a band of its own.
void draw_key(const Key& key, int left, int top) {
    const int x = left + key.col * (CELL_WIDTH + GAP), y = top + key.row * (CELL_HEIGHT + GAP);
    const int width = key.cols * (CELL_WIDTH + GAP) - GAP, height = key.rows * (CELL_HEIGHT + GAP) - GAP;
    const int middle = x + width / 2, band = 24;
    const char* const gold = kpe_function_name(key.code, /*gold=*/true);
    std::printf("<rect class=\"key\" x=\"%d\" y=\"%d\" width=\"%d\" height=\"%d\" rx=\"5\"/>\n", x, y, width, height);
    if (*gold) {
        std::printf("<rect class=\"band\" x=\"%d\" y=\"%d\" width=\"%d\" height=\"%d\"/>\n", x + 1,
                    y + height - band - 4, width - 2, band);
    }
    draw_text("label", middle, y + 17, label_of(key.code).c_str());
    draw_text("plain", middle, y + (height - band) / 2 + 12, kpe_function_name(key.code, /*gold=*/false));
    draw_text("gold", middle, y + height - band + 12, gold);
}

constexpr const char* STYLE =
    "<style>\n"
    "rect.paper{fill:#fff}rect.key{fill:#f4f4f0;stroke:#555}rect.band{fill:#f2d675}\n"
    "text{font-family:DejaVu Sans,Helvetica,Arial,sans-serif;text-anchor:middle;fill:#111}\n"
    "text.label{font-size:11px;fill:#666}text.plain{font-size:13px;font-weight:bold}text.gold{font-size:12px}\n"
    "text.title{font-size:14px;text-anchor:start}\n"
    "</style>\n";

void write_row(const std::string& label, int code) {
    const char* const plain = kpe_function_name(code, /*gold=*/false);
    const char* const gold = kpe_function_name(code, /*gold=*/true);
    if (*plain || *gold) std::printf("| %s | %s | %s |\n", label.c_str(), plain, gold);
}

void write_table() {
    std::printf("| Key | Plain | After GOLD |\n| --- | --- | --- |\n");
    for (char letter = 'A'; letter <= 'Z'; ++letter) write_row("Ctrl/" + std::string(1, letter), kpe_ctrl(letter));
    write_row("Backspace", KEY_BACKSPACE);
    write_row("Delete (code 127)", KPE_DELETE);
    write_row("Command", KEY_COMMAND);
    write_row("Find", KEY_FIND);
    write_row("Select", KEY_SELECT);
    for (const auto [key, stands_for] : kpe_alt_layer()) {
        if (key == stands_for) write_row(kpe_key_name(key), key);
    }
    write_row("N", 'N');
    write_row("Q", 'Q');
}

std::string lower(std::string text) {
    for (char& c : text) c = kpe_to_lower(c);
    return text;
}

void write_functions() {
    std::map<std::string_view, std::string> keys;
    for (const KeyFunction& key : kpe_key_functions()) {
        std::string& all = keys[key.function];
        const std::string name =
            key.key.starts_with("KEY_") ? key.key.substr(4, 1) + lower(key.key.substr(5)) : key.key;
        all += (all.empty() ? "" : ", ") + name;
    }
    for (const auto& [function, its_keys] : keys)
        std::printf("    %s: %s\n", std::string(function).c_str(), its_keys.c_str());
}

void draw_picture() {
    const int keypad_left = MARGIN, editing_left = MARGIN + 4 * (CELL_WIDTH + GAP) + 3 * MARGIN, top = MARGIN + TITLE;
    const int width = editing_left + 3 * (CELL_WIDTH + GAP) - GAP + MARGIN;
    const int height = top + 5 * (CELL_HEIGHT + GAP) - GAP + MARGIN;
    std::printf("<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"%d\" height=\"%d\" viewBox=\"0 0 %d %d\">\n", width,
                height, width, height);
    std::printf("<title>The keypad of kpe</title>\n%s<rect class=\"paper\" width=\"%d\" height=\"%d\"/>\n", STYLE,
                width, height);
    draw_text("title", keypad_left, MARGIN + 16,
              "The numeric keypad, with Alt and with SET KEYPAD EDITING. Yellow: after GOLD (PF1).");
    draw_text("title", editing_left, MARGIN + 16, "Editing and arrow keys");
    for (const Key& key : KEYPAD) draw_key(key, keypad_left, top);
    for (const Key& key : EDITING) draw_key(key, editing_left, top);
    std::printf("</svg>\n");
}

}  // namespace

int main(int argc, char** argv) {
    const std::string_view what = argc > 1 ? argv[1] : "";
    if (what == "table") {
        write_table();
    } else if (what == "functions") {
        write_functions();
    } else {
        draw_picture();
    }
    return 0;
}
