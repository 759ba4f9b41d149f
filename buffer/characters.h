#pragma once

#include <cstddef>
#include <string>
#include <string_view>

// The characters of a line, as a person counts them. In a UTF-8 locale a character is an extended grapheme cluster of
// UAX #29: a letter with its combining marks, an emoji sequence, a flag. A byte that belongs to no valid UTF-8 is a
// character by itself. In every other locale each byte is a character.
//
// Columns are zero-based byte columns. A column behind the end of the line counts as the end.

// The column where the character begins that holds the byte at col. At the end of the line this is the end.
size_t kpe_character_start(std::string_view line, size_t col);
// The column behind the character that holds the byte at col. At the end of the line this is the end.
size_t kpe_character_end(std::string_view line, size_t col);
// The column where the character in front of col begins; 0 at the start of the line.
size_t kpe_character_before(std::string_view line, size_t col);
// The first column from col on where a character begins or the line ends.
size_t kpe_character_border(std::string_view line, size_t col);

// One character of UTF-8 text, and its place on a screen.
struct Utf8Character {
    size_t bytes = 1;
    size_t cells = 1;       // 0 to 2 for one code point, and the sum for a cluster that terminals do not join
    bool valid = true;      // false: one byte that is no UTF-8
    bool control = false;   // a terminal would obey it, or shows nothing
    bool doubtful = false;  // terminals disagree about the cells
};
// The character at the start of text, which must not be empty and must begin one. joined says whether the terminal
// shows a cluster in the cells of one character (mode 2027).
Utf8Character kpe_utf8_character(std::string_view text, bool joined);
// Like it, but not more than the first code point. Returns 0 for a byte that is no UTF-8.
size_t kpe_utf8_size(std::string_view text);
// The bytes of a code point, which must be valid.
std::string kpe_utf8_of(char32_t code);
