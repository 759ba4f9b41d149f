#pragma once

#include <cstddef>
#include <functional>
#include <string>

#include "system/terminal.h"

// Waits for the next key and returns its normalised code; an interrupt counts as Ctrl/C. A CursesSession must live.
//
// It calls draw before it waits, so not while keys are typed faster than they are handled. It calls draw again, with
// anew set, when the terminal has got another size or its picture was lost. Returns ERR when there will be no more
// keys: at the end of input, after a hangup, and after a signal that ends the process.
using KpeDraw = std::function<void(bool anew)>;
int kpe_read_key(bool pc_keypad, const KpeDraw& draw);
// The text of the paste for which kpe_read_key has returned KPE_PASTE, as it came, but with each line break as "\n".
// Throws std::bad_alloc if there was not enough memory for it.
std::string kpe_take_paste();
// To be called before the screen gives the terminal back. Waits for a moment if the terminal still owes an answer, and
// gives all other bytes that come to whoever reads next.
void kpe_await_answers();
// How many keys were read since the start, and how many of them were Ctrl/C.
size_t kpe_keys_read();
size_t kpe_cancels_read();
// What is read, for a program that shows it: the bytes of the key that was returned last, or of what was no key. Then
// dropped is called. Whoever reads the bytes clears them.
struct KeyRecord {
    std::string bytes;
    std::function<void()> dropped;
};
// From now on record is filled; nothing is with null.
void kpe_record_keys(KeyRecord* record);
// Says that the next so many bytes were typed before the terminal was raw: in them a line feed means Return.
void kpe_expect_typed_before(size_t bytes);
// Whether the terminal has hung up. Then no key will come any more, not even the Ctrl/C that stops a long operation.
bool kpe_terminal_gone();
