#include <algorithm>
#include <array>
#include <cstdio>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "editor/kpe.h"
#include "editor/on_screen.h"
#include "screen/curses_session.h"
#include "screen/key_layers.h"
#include "screen/shown_rows.h"
#include "system/version.h"

namespace {

// In the title, because it is the one row that every terminal shows whole.
constexpr const char* WAY_OUT = "any key: back, then Ctrl/Z, EXIT or QUIT; GOLD Q: QUIT";

// From screen row 1 on; the title stands above.
constexpr const char* PAGE[] = {
    "",
    "GOLD = PF1 or F1 (Esc O P). Not Num Lock - map Num Lock->PF1 in the terminal if desired.",
    "PF1/F1        GOLD prefix            GOLD+PF2   BOTTOM",
    "PF2/F2        HELP                   GOLD+PF3   FIND prompt",
    "PF3/F3        FNDNXT                 GOLD+PF4   Undelete line",
    "PF4/F4        Delete line",
    "",
    "Ctrl/A        Toggle insert/overstrike   Ctrl/E   End of line",
    "Ctrl/B        Beginning of line          Ctrl/F   FNDNXT",
    "Ctrl/D        Toggle ADVANCE/BACKUP      Ctrl/T   Toggle char case",
    "Ctrl/K        DEFINE KEY (interactive)  GOLD+Ctrl/K  DEL EOL",
    "Ctrl/C        Abort GOLD/select         Ctrl/Z   Return to line mode",
    "Ctrl/U        Delete to BOL (to PASTE)",
    "Ctrl/J        LINEFEED (del word left)  Ctrl/W/L/R Refresh screen",
    "PgUp/PgDn     PAGE back/forward         Ins PASTE  Find FNDNXT",
    "",
    "Keypad . SELECT   Keypad 6 CUT   GOLD+6 PASTE   Keypad 9 APPEND",
    "GOLD+9 REPLACE    GOLD+.  RESET  Keypad - DEL W  Keypad , DEL C",
    "GOLD+- UND W      GOLD+,  UND C  GOLD+2  DEL EOL GOLD+1  toggle case",
    "KP0 LINE          GOLD+0  OPEN LINE     GOLD+8  FILL paragraph",
    "GOLD+3 SPECINS    GOLD+4  BOTTOM        GOLD+5  TOP",
    "GOLD+7 Command    GOLD+Enter SUBS (search->PASTE)",
    "GOLD+digits N     repeat next GOLD cmd N times",
    "GOLD+Up TOP       GOLD+Dn BOTTOM GOLD+N  toggle line numbers",
    "GOLD+Q  QUIT      GOLD+Left/Right shift line",
    "",
    "Keypad 0 LINE  1 WORD  2 EOL  3 CHAR  4 ADVANCE  5 BACKUP",
    "Keypad 7 PAGE  8 SECTION (16 lines)",
    "",
    "Press any key to continue",
};

// What does not fit into its row goes on in the next one, and the next line is written over it.
void write_in_full(std::vector<std::string>& rows, size_t row, std::string_view text) {
    const auto width = static_cast<size_t>(kpe_screen_size().cols);
    for (; row < rows.size() && !text.empty(); ++row) {
        const std::string_view part = text.substr(0, width);
        rows[row].replace(0, part.size(), part);
        text.remove_prefix(part.size());
    }
}

// The entries in columns, as many to a row as fit into the width of the page above.
std::vector<std::string> in_columns(const std::vector<std::string>& entries) {
    constexpr size_t WIDTH = 80;
    size_t column = 0;
    for (const std::string& entry : entries) column = std::max(column, entry.size() + 2);
    std::vector<std::string> rows;
    for (const std::string& entry : entries) {
        if (rows.empty() || rows.back().size() + entry.size() > WIDTH) rows.emplace_back();
        rows.back() += entry + std::string(column - entry.size(), ' ');
    }
    return rows;
}

// As in "Alt/u KP7 PAGE".
std::string entry(const std::string& pressed, int stands_for) {
    const std::string keypad = kpe_is_modified(stands_for) ? "" : std::string(kpe_key_label(stands_for)) + " ";
    return pressed + " " + keypad + kpe_function_name(stands_for, /*gold=*/false);
}

// What stands below the page on a terminal that has rows left.
std::vector<std::string> layers() {
    std::vector<std::string> alt, editing;
    for (const auto [key, stands_for] : kpe_alt_layer()) alt.push_back(entry(kpe_key_name(key), stands_for));
    for (const auto [key, stands_for] : kpe_editing_layer()) editing.push_back(entry(kpe_key_name(key), stands_for));
    for (const auto [key, stands_for] : kpe_gold_arrows())
        editing.push_back(entry("GOLD+" + kpe_key_name(key), stands_for));
    std::vector<std::string> rows = {"", "Without a keypad, press Alt and:"};
    for (std::string& row : in_columns(alt)) rows.push_back(std::move(row));
    rows.emplace_back("After SET KEYPAD EDITING:");
    for (std::string& row : in_columns(editing)) rows.push_back(std::move(row));
    return rows;
}

void draw_page() {
    const ScreenSize screen = kpe_screen_size();
    std::array<char, 96> title{};
    std::snprintf(title.data(), title.size(), "%s  %s - screen help", kpe_version_string().c_str(), WAY_OUT);
    std::vector<std::string> rows(static_cast<size_t>(screen.rows));
    size_t row = 0;
    write_in_full(rows, row++, title.data());
    for (const char* const line : PAGE) write_in_full(rows, row++, line);
    const size_t last = std::min(row, rows.size()) - 1;
    for (const std::string& line : layers()) write_in_full(rows, row++, line);
    g_shown_rows.begin(screen.rows, screen.cols);
    for (size_t i = 0; i < rows.size(); ++i) g_shown_rows.show(static_cast<int>(i), {{}, rows[i]});
    g_shown_rows.paint(static_cast<int>(last), std::min(static_cast<int>(rows[last].size()), screen.cols - 1));
}

}  // namespace

void Editor::show_help_screen() {
    read_key([](bool) { draw_page(); });
    if (policy_.leaving_keys) tell_how_to_leave();
}
