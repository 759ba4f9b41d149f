#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

// Helpers for bytes and for texts of bytes. Letters and blanks are those of ASCII, whatever locale the process has.

inline bool kpe_is_space(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
inline bool kpe_is_digit(char c) { return c >= '0' && c <= '9'; }
inline bool kpe_is_alpha(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
inline bool kpe_is_punct(char c) { return c > ' ' && c < 127 && !kpe_is_alpha(c) && !kpe_is_digit(c); }
inline char kpe_to_upper(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; }
inline char kpe_to_lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }
// Whether c stands inside of a character of UTF-8, behind its first byte.
inline bool kpe_is_continuation(char c) { return (static_cast<unsigned char>(c) & 0xc0) == 0x80; }
std::string_view kpe_trim(std::string_view text);
// Takes the first line, without its "\n", from the start of text.
std::string_view kpe_take_line(std::string_view& text);
bool kpe_all_digits(std::string_view text);  // false for empty text

// Splits text at its first blanks: the first word, and the rest behind it without blanks at its ends.
std::pair<std::string_view, std::string_view> kpe_first_word(std::string_view text);

// As std::stoi, std::stol and std::stoul in base 10: leading blanks and a sign are accepted, and what follows the
// digits is ignored. Where those functions would throw, these return nothing.
std::optional<int> kpe_stoi(std::string_view text);
std::optional<long> kpe_stol(std::string_view text);
std::optional<unsigned long> kpe_stoul(std::string_view text);
// As kpe_stoi, but also removes what it has read from the start of text. Without a number text stays as it is.
std::optional<int> kpe_take_int(std::string_view& text);
// The text as one word of a shell's command line: in quotes if it holds what a shell would take for more than itself.
std::string kpe_shell_word(std::string_view text);
