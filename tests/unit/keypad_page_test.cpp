#include <gtest/gtest.h>

#include <curses.h>
#include <fstream>
#include <iterator>
#include <string>
#include <utility>

#include "screen/n3_kpe_keymap.h"

namespace {

std::string table_row(const std::string& label, int key) {
    return "| " + label + " | " + kpe_function_name(key, /*gold=*/false) + " | " + gold_function_name(key) + " |\n";
}

// The keys that the picture does not show stand in a table, under the names that the status line uses.
TEST(KeypadPage, TableNamesEveryKeyOutsideThePicture) {
    std::ifstream file(KPE_SOURCE_DIR "/docs/keypad.md");
    const std::string page{std::istreambuf_iterator<char>(file), {}};

    for (char letter = 'A'; letter <= 'Z'; ++letter) {
        const int key = kpe_ctrl(letter);
        const std::string label = "Ctrl/" + std::string(1, letter);
        if (*kpe_function_name(key, /*gold=*/false) || *gold_function_name(key)) {
            EXPECT_NE(page.find(table_row(label, key)), page.npos) << table_row(label, key);
        } else {
            EXPECT_EQ(page.find("| " + label + " |"), page.npos) << label << " has no function";
        }
    }
    const std::pair<const char*, int> others[] = {
        {"Backspace", KEY_BACKSPACE},
        {"Delete (code 127)", KPE_DELETE},
        {"Command", KEY_COMMAND},
        {"Find", KEY_FIND},
        {"Select", KEY_SELECT},
        {"N", 'N'},
        {"Q", 'Q'},
    };
    for (const auto& [label, key] : others) {
        EXPECT_NE(page.find(table_row(label, key)), page.npos) << table_row(label, key);
    }
}

}  // namespace
