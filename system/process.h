#pragma once

// How the process ends, by a signal or by itself.
//
// The folder system/ holds what every other folder uses: input and output by lines, signals, the end of the process,
// the terminal's modes, large blocks of memory, and work that waits for a pause. It knows nothing of texts and
// commands.

// Makes the process safe before anything is edited. SIGXFSZ is ignored, so that a write beyond the size limit fails
// with an error. The signals that end the process set g_kpe_end_signal. Those that were ignored at the start stay
// ignored.
//
// After such a signal only a file that is being written (FileWork) can delay the end for long. Once a second a system
// call that blocks is interrupted, and output that nobody takes is dropped from then on. After ten seconds the process
// ends, wherever it is. It also ends so when a signal comes again after the first second; not earlier, because one
// cause may send two signals: both the shell and the kernel report a terminal that was closed. While a file is being
// written, only a repeated signal ends the process, and only if nothing was written for ten seconds.
//
// After a crash the terminal is given back, and a child process writes the texts that can still be saved. Then the
// process ends by the signal of the crash.
void kpe_install_signal_handlers();
// Sets the function that saves the texts after a crash, or none (null). It is called in a child process, where any data
// may be damaged.
void kpe_set_rescue(void (*rescue)());
// To be called in a child process between fork and exec: signals that kpe ignores get their usual effect again.
void kpe_reset_signals_in_child();
// Writes out all that was printed, and ends the process by the signal g_kpe_end_signal.
[[noreturn]] void kpe_end_by_signal();
// Limits in the same way how long an end without a signal may take. When the time is over, the process ends with this
// status.
void kpe_limit_end(int status);
// Writes out all that was printed, gives the terminal back, and ends the process with this status. It has a source file
// of its own (exit.cpp), so that a test which runs one session after the other can replace it.
[[noreturn]] void kpe_exit(int status);
