#pragma once

#include <csignal>

// The two flags that signal handlers set, and that all that waits or lasts asks.

// Set by kpe_sigint_handler, and by a signal that ends the process; polled by long operations.
extern volatile std::sig_atomic_t g_kpe_abort_requested;
// The number of the signal that asked the process to end (see kpe_ending_signals; SIGINT while no operation takes it
// as an interrupt), else 0. Whatever waits or lasts gives up then, and the session ends where its texts are whole
// (Editor::obey_end_signal).
extern volatile std::sig_atomic_t g_kpe_end_signal;

// Sets g_kpe_abort_requested and nothing else.
void kpe_sigint_handler(int);
// The interrupt has had its effect, or came too late: g_kpe_abort_requested is 0 again, unless the process is to end.
void kpe_forget_interrupt();
