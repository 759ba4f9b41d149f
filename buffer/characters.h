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
    char32_t code = 0;  // of its first code point; no meaning if its byte is no UTF-8
    size_t bytes = 1;
    size_t cells = 1;        // at least 1; the sum of its code points where a terminal does not join them
    bool shown = true;       // false: no UTF-8, or something that a terminal would obey or not show
    bool lone_mark = false;  // there is no letter in front of the mark that it begins with
    bool doubtful = false;   // terminals disagree about its cells
};
// The character at the start of text, which must not be empty and must begin one.
Utf8Character kpe_utf8_character(std::string_view text);
// Says whether the terminal shows a cluster of several code points in the cells of one character (its mode 2027).
void kpe_join_clusters(bool joined);
// How many bytes at the start of text, which must not be empty, are one code point; 0 if they are no UTF-8.
size_t kpe_utf8_size(std::string_view text);
// The bytes of a code point, which must be valid.
std::string kpe_utf8_of(char32_t code);

// Columns of the view, also those behind the end of the line: an ASCII byte counts as one, even if it is shown in
// several cells. In a UTF-8 locale any other character counts as its cells, in other locales every byte as one.
//
// How far apart two columns of the line are, from <= to; most + 1 if it is more than most.
size_t kpe_view_columns(std::string_view line, size_t from, size_t to, size_t most);
// The byte column at the start of text behind which the next character would not fit into so many columns. At least one
// character counts as fitting.
size_t kpe_view_end(std::string_view text, size_t width);
// Where the first character begins from which on it is no more than so many columns of the view up to byte column to.
size_t kpe_view_start(std::string_view line, size_t to, size_t width);
