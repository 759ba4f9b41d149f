#pragma once

#include <cstddef>
#include <functional>

#include "system/terminal.h"

// The next key, normalised; an interrupt counts as Ctrl/C. Calls draw before it waits (so not while keys are
// typed faster than they are handled), and again, with anew, whenever the size of the terminal changed or its
// picture was lost meanwhile. ERR when there will be no more keys: end of input, a hangup, or a signal that
// ends the process. While a CursesSession lives.
using KpeDraw = std::function<void(bool anew)>;
int kpe_read_key(bool pc_keypad, const KpeDraw& draw);
// How many keys were read so far, and how many of them were Ctrl/C.
size_t kpe_keys_read();
size_t kpe_cancels_read();
// The next so many bytes were typed before the terminal was raw: Return is a line feed there.
void kpe_expect_typed_before(size_t bytes);
// Whether the terminal has hung up: no key will come any more, not even the Ctrl/C that ends what lasts.
bool kpe_terminal_gone();
