#pragma once

#include <cstddef>
#include <string>
#include <string_view>

// All that commands print goes through here. Output is gathered and handed over before kpe waits for
// input, before anything goes to standard error, before a child process, and at the end.
//
// Text may be anybody's, and may hold bytes that a terminal obeys: on a terminal control bytes are shown as ^X, and
// those of eight bits as "?"; tabs pass. Pipes and files get every byte as it is.

void kpe_print(std::string_view text);                  // a part of a line
void kpe_end_line();                                    // "\n"
void kpe_say_lines(std::string_view text);              // each with its "\n", one after the last as well
void kpe_say(bool report, std::string_view line);       // line + "\n"; nothing without report
void kpe_complain(bool report, std::string_view what);  // "?" + what + "\n"; nothing without report
void kpe_warn(std::string_view line);                   // line + "\n" on standard error
// Bytes that the terminal is to obey, never text: as they are.
void kpe_send_to_terminal(std::string_view bytes);
// Whether something went to standard error since the last call.
bool kpe_warned();
void kpe_flush();
// Whether the last byte that was printed ended its line.
bool kpe_at_line_start();
std::string kpe_counted(size_t n, std::string_view noun);  // "1 line", "2 lines"
inline const char* kpe_on_off(bool on) { return on ? "ON" : "OFF"; }
