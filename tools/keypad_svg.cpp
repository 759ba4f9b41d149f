// Draws docs/manual/keypad.svg: what the keypad and the editing keys do, plain and after GOLD, by the names that the
// program itself uses. With the argument "table" it writes the table of docs/manual/keypad.md, which names the keys
// that the picture leaves out; with "functions" the line of each function there that names its keys; with "card"
// docs/manual/card.svg, a page to print with keys and commands. All go to standard output; tests compare them with the
// documents.

#include <algorithm>
#include <cstdio>
#include <curses.h>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "editor/on_screen.h"
#include "editor/verb_help.h"
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

constexpr int EDITING_LEFT = MARGIN + 4 * (CELL_WIDTH + GAP) + 3 * MARGIN;
constexpr int PICTURE_WIDTH = EDITING_LEFT + 3 * (CELL_WIDTH + GAP) - GAP + MARGIN;
constexpr int PICTURE_HEIGHT = MARGIN + TITLE + 5 * (CELL_HEIGHT + GAP) - GAP + MARGIN;

void begin_svg(const char* title, int width, int height) {
    std::printf("<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"%d\" height=\"%d\" viewBox=\"0 0 %d %d\">\n", width,
                height, width, height);
    std::printf("<title>%s</title>\n%s<rect class=\"paper\" width=\"%d\" height=\"%d\"/>\n", title, STYLE, width,
                height);
}

void draw_keys() {
    const int top = MARGIN + TITLE;
    draw_text("title", MARGIN, MARGIN + 16,
              "The numeric keypad, with Alt and with SET KEYPAD EDITING. Yellow: after GOLD (PF1).");
    draw_text("title", EDITING_LEFT, MARGIN + 16, "Editing and arrow keys");
    for (const Key& key : KEYPAD) draw_key(key, MARGIN, top);
    for (const Key& key : EDITING) draw_key(key, EDITING_LEFT, top);
}

void draw_picture() {
    begin_svg("The keypad of kpe", PICTURE_WIDTH, PICTURE_HEIGHT);
    draw_keys();
    std::printf("</svg>\n");
}

// --- The card: a page of A4, in pixels of 1/96 inch ---

constexpr int CARD_WIDTH = 794, CARD_HEIGHT = 1123, CARD_MARGIN = 24;
constexpr int LINE = 11, COLUMN = (CARD_WIDTH - 2 * CARD_MARGIN) / 2;

// Takes as many words from the start of text as fit into so many characters, at least one.
std::string take_words(std::string_view& text, size_t width) {
    size_t end = text.size();
    if (end > width) end = text.rfind(' ', width);
    if (end == text.npos) end = std::min(text.find(' '), text.size());
    std::string words(text.substr(0, end));
    text.remove_prefix(std::min(text.size(), end + 1));
    return words;
}

// Returns where the next line goes.
int draw_lines(const char* style, int x, int y, std::string_view text, size_t width) {
    for (; !text.empty(); y += LINE) draw_text(style, x, y, take_words(text, width).c_str());
    return y;
}

std::string_view first_sentence(std::string_view text) {
    text = kpe_take_line(text);
    const size_t end = text.find(". ");
    return text.substr(0, end == text.npos ? end : end + 1);
}

bool is_setting(const VerbHelp& row) { return row.verb.starts_with("SET-") || row.verb.starts_with("SHOW-"); }

// The first form of each command and what it does, in two columns. Returns where they end.
int draw_commands(int top) {
    constexpr int TEXT = 112;
    constexpr size_t WIDTH = 58;
    std::vector<const VerbHelp*> commands;
    int lines = 0;
    for (const VerbHelp& row : KPE_VERB_HELP) {
        if (is_setting(row)) continue;
        commands.push_back(&row);
        for (std::string_view text = first_sentence(row.text); !text.empty(); ++lines) take_words(text, WIDTH);
    }
    int x = CARD_MARGIN, y = top, lowest = top;
    for (const VerbHelp* row : commands) {
        if (x == CARD_MARGIN && y - top >= (lines + 1) / 2 * LINE) {
            x += COLUMN;
            y = top;
        }
        const std::string form(row->syntax.substr(0, row->syntax.find('\n')));
        const bool is_long = form.size() > 21;
        draw_text("form", x, y, form.c_str());
        y = draw_lines("text", x + TEXT, is_long ? y + LINE : y, first_sentence(row->text), WIDTH);
        lowest = std::max(lowest, y);
    }
    return lowest;
}

// The names of the settings as HELP SET has them.
std::string settings() {
    std::string all;
    for (const VerbHelp& row : KPE_VERB_HELP) {
        if (!row.verb.starts_with("SET-")) continue;
        for (std::string_view forms = row.syntax; !forms.empty();) {
            const std::string_view form = kpe_take_line(forms);
            if (form.starts_with("SET ")) all += (all.empty() ? "" : ", ") + std::string(form.substr(4));
        }
    }
    return all;
}

// What Ctrl and a letter does.
std::string control_keys() {
    std::string all;
    for (char letter = 'A'; letter <= 'Z'; ++letter) {
        const char* const name = kpe_function_name(kpe_ctrl(letter), /*gold=*/false);
        if (*name) all += (all.empty() ? "" : ", ") + std::string(1, letter) + " " + name;
    }
    return all;
}

void draw_card() {
    constexpr size_t WIDTH = 148;
    begin_svg("The card of kpe", CARD_WIDTH, CARD_HEIGHT);
    std::printf(
        "<style>text.form,text.text,text.head{font-size:8px;text-anchor:start}text.form{font-family:DejaVu Sans "
        "Mono,monospace}text.head{font-weight:bold;font-size:10px}</style>\n");
    const double scale = static_cast<double>(CARD_WIDTH - CARD_MARGIN) / PICTURE_WIDTH;
    std::printf("<g transform=\"translate(%d,0) scale(%.3f)\">\n", CARD_MARGIN / 2, scale);
    draw_keys();
    std::printf("</g>\n");
    const auto paragraph = [](int y, const char* head, const std::string& text) {
        draw_text("head", CARD_MARGIN, y, head);
        return draw_lines("text", CARD_MARGIN, y + LINE + 2, text, WIDTH) + 6;
    };
    int y = static_cast<int>(PICTURE_HEIGHT * scale) + 20;
    y = paragraph(y, "With Ctrl", control_keys());
    draw_text("head", CARD_MARGIN, y, "Commands at the prompt *");
    y = draw_commands(y + LINE + 4) + 6;
    y = paragraph(y, "SET ...; SHOW and the name shows it", settings());
    y = paragraph(y, "Ranges",
                  "12 | . this line | .+3, .-3 | BEGIN, END | two of these with : or THRU between them | WHOLE | REST "
                  "from here to the end");
    y = paragraph(
        y, "Search strings",
        "* any text | ? or % one character | [a-z] one of these | [^a-z] none of these | ^ beginning of a line | "
        "$ end of a line | \\ makes the next one plain");
    y = paragraph(
        y, "Qualifiers",
        "/QUERY asks | /GLOBAL everywhere | /STAY stays at the match | /BRIEF:n shows n characters | /SAVE saves "
        "then | /NOTYPE shows nothing");
    paragraph(y, "Leaving",
              "EXIT saves and leaves | QUIT leaves | on the screen Ctrl/Z first | kpe-editor: Alt/x, Alt/q");
    std::printf("</svg>\n");
}

}  // namespace

int main(int argc, char** argv) {
    const std::string_view what = argc > 1 ? argv[1] : "";
    if (what == "table") {
        write_table();
    } else if (what == "functions") {
        write_functions();
    } else if (what == "card") {
        draw_card();
    } else {
        draw_picture();
    }
    return 0;
}
