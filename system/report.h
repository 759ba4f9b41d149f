#pragma once

#include <cstddef>
#include <string>
#include <string_view>

// Commands print by these functions and in no other way. Output is gathered. It is written before kpe waits for input,
// before anything goes to standard error, before a child process runs, and at the end.
//
// A text may come from anybody and hold bytes that a terminal would obey. On a terminal control bytes are therefore
// shown as ^X, and control bytes of the 8-bit set as "?"; tabs stay. Pipes and files get every byte as it is.

void kpe_print(std::string_view text);                  // a part of a line
void kpe_end_line();                                    // "\n"
void kpe_say_lines(std::string_view text);              // lines with "\n" between; adds one after the last
void kpe_say(bool report, std::string_view line);       // line + "\n"; nothing without report
void kpe_complain(bool report, std::string_view what);  // "?" + what + "\n"; nothing without report
void kpe_warn(std::string_view line);                   // line + "\n" on standard error
// How many lines kpe_complain was given until now, printed or not. What people are told by kpe_warn does not count.
size_t kpe_complaints();
// Sends bytes to standard error as they are, for a question that is wiped out when it is answered. Never for text.
void kpe_ask_reader(std::string_view bytes);
// Sends bytes as they are, for the terminal to obey. Never for text.
void kpe_send_to_terminal(std::string_view bytes);
// Whether anything went to standard error since the last call of this function.
bool kpe_warned();
void kpe_flush();  // writes what was gathered
// Whether the last byte that was printed, or sent to a terminal as a warning, ended its line.
bool kpe_at_line_start();
std::string kpe_counted(size_t n, std::string_view noun);  // "1 line", "2 lines"
inline const char* kpe_on_off(bool on) { return on ? "ON" : "OFF"; }
