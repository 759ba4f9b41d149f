#pragma once

#include <csignal>
#include <string>

// What belongs to the process and not to the session: signals, the guarded end of curses, the version.

extern const int KPE_VERSION_MAJOR;
extern const int KPE_VERSION_MINOR;
extern const int KPE_VERSION_EDIT;
extern const char* const KPE_RELEASE_DATE;

// Set by kpe_sigint_handler; polled by long operations.
extern volatile std::sig_atomic_t g_kpe_abort_requested;
// The number of a signal that asked the process to end while curses had the terminal (SIGHUP, SIGTERM,
// SIGQUIT) or while output was handed over, else 0: screen mode ends as soon as it sees it.
extern volatile std::sig_atomic_t g_kpe_end_signal;
// Whether curses has the terminal.
extern bool g_curses_active;

// Sets g_kpe_abort_requested and nothing else.
void kpe_sigint_handler(int);
// Ends curses if it is active, and writes the sequence that leaves keypad application mode. Any number of times.
void kpe_safe_endwin();

// Makes the process safe before anything is edited: SIGXFSZ and SIGPIPE become errors of the write they
// belong to; a signal that ends the process first flushes what was printed and restores the terminal.
// Signals that were ignored at the start stay ignored.
void kpe_install_signal_handlers();
// Puts the default actions back in a child between fork and exec.
void kpe_default_signals_for_child();
// If a signal asked for the end of the process, ends it now by that signal; nothing while curses is active.
void kpe_obey_end_signal();

// "V1.11-0"
std::string kpe_version_string();
// The version with its notice, and the release date, each with "\n".
std::string kpe_version_banner();
