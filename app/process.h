#pragma once

#include <csignal>
#include <string>

// What belongs to the process and not to the session: signals, the guarded end of curses, the version.

extern const int KPE_VERSION_MAJOR;
extern const int KPE_VERSION_MINOR;
extern const int KPE_VERSION_EDIT;
extern const char* const KPE_RELEASE_DATE;

// Set by kpe_sigint_handler, and by a signal that ends the process; polled by long operations.
extern volatile std::sig_atomic_t g_kpe_abort_requested;
// The number of the signal that asked the process to end (see kpe_ending_signals; SIGINT while no operation takes it
// as an interrupt), else 0. Handlers do no more than to set it: whatever waits or lasts gives up,
// and the session ends where its texts are whole (Editor::obey_end_signal).
extern volatile std::sig_atomic_t g_kpe_end_signal;
// Whether curses has the terminal.
extern bool g_curses_active;

// Sets g_kpe_abort_requested and nothing else.
void kpe_sigint_handler(int);
// The interrupt has had its effect, or came too late: g_kpe_abort_requested is 0 again, unless the process is to end.
void kpe_forget_interrupt();
// Ends curses, which is active, and writes the sequence that leaves keypad application mode.
void kpe_leave_screen();
// Ends curses if it is active, and writes the sequence that leaves keypad application mode. Any number of times.
void kpe_safe_endwin();

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
// Puts the default actions back in a child between fork and exec.
void kpe_default_signals_for_child();
// Ends the process by g_kpe_end_signal, with all that was printed handed over.
[[noreturn]] void kpe_end_by_signal();
// Limits in the same way how long an end without a signal may take; past that the status is this one.
void kpe_limit_end(int status);
// For an end in the middle of something: the modes that the terminal has now, and what to write to it then.
void kpe_remember_terminal();
void kpe_set_terminal_reset(const std::string& bytes);

// Ends the process with that status, after everything is handed over and put back. In a file of its own, so that
// a test that runs sessions one after the other can have another one.
[[noreturn]] void kpe_exit(int status);

// "V1.11-0"
std::string kpe_version_string();
// The version with its notice, and the release date, each with "\n".
std::string kpe_version_banner();
