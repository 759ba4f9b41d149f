#pragma once

// The end of the process, by signals and without.

// Makes the process safe before anything is edited: SIGXFSZ becomes an error of the write it belongs to, and the
// signals that end the process set g_kpe_end_signal. Those that were ignored at the start stay ignored.
//
// From such a signal on nothing but a file that is being written (FileWork) can hold up the end for long. Once a second
// what waits in a system call is woken up, and output that nobody takes is sent to nowhere; after ten seconds, or
// when the signal comes again after the first of them, the process ends there and then. (Signals come in pairs: of a
// terminal that was closed the shell and the kernel tell both.) While a file is being written, only a signal that comes
// again ends it, and only when nothing was written for ten seconds.
//
// A crash gives the terminal back, has a child process keep the texts that can be kept, and then ends the process by
// its signal as it would have.
void kpe_install_signal_handlers();
// What keeps the texts after a crash: called in a child process, where anything may be out of order. null: nothing.
void kpe_set_rescue(void (*rescue)());
// In a child between fork and exec: what kpe ignores has its usual effect on other programs.
void kpe_reset_signals_in_child();
// Ends the process by g_kpe_end_signal, with all that was printed handed over.
[[noreturn]] void kpe_end_by_signal();
// Limits in the same way how long an end without a signal may take; past that the status is this one.
void kpe_limit_end(int status);
// Ends the process with that status, after everything is handed over and put back. In a file of its own, so that
// a test that runs sessions one after the other can have another one.
[[noreturn]] void kpe_exit(int status);
