#pragma once

#include <chrono>

#include "editor/key_decoder.h"

// What the terminal is told for as long as the screen has it, so that it sends each key in a way of its own and marks a
// paste; and what it is asked about that. A terminal that knows kitty's protocol is made to use it.

// To be called when the screen has the terminal, and before it gives it back. The first call of kpe_key_modes_on in the
// process asks the terminal, and does not wait for answers.
void kpe_key_modes_on();
void kpe_key_modes_off();
// Sets the bytes that a signal handler sends to leave the screen. Curses must have been started.
void kpe_prepare_leaving();

// To be called with all that was answered up to now, whenever there may be more.
void kpe_note_answers(const TerminalAnswers& answers);
// Whether the terminal was asked less than this time ago and has not answered yet.
bool kpe_terminal_owes_answer(std::chrono::milliseconds asked_within);
// Whether the terminal has said that it knows kitty's protocol.
bool kpe_terminal_knows_protocol();

// Meanwhile Ctrl/C arrives as a byte from a terminal that uses the protocol, too. Without the protocol they do nothing.
void kpe_pause_protocol();
void kpe_continue_protocol();
