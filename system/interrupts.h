#pragma once

#include <csignal>

// The two flags that signal handlers set. Every wait and every long operation looks at them.

// Not 0: long operations have to stop. Ctrl/C sets it (kpe_sigint_handler), and so does a signal that ends the process.
extern volatile std::sig_atomic_t g_kpe_abort_requested;
// The number of the signal that asked the process to end, else 0. It is one of kpe_ending_signals; SIGINT is among them
// while no operation takes it as an interrupt. Waits and long operations then stop, and the session ends as soon as its
// texts are whole (Editor::obey_end_signal).
extern volatile std::sig_atomic_t g_kpe_end_signal;

// Whether a handler has set the flag (may be null: no). For threads that share work, as the handler runs in another
// one.
inline bool kpe_is_set(const volatile std::sig_atomic_t* flag) {
    return flag && __atomic_load_n(flag, __ATOMIC_RELAXED) != 0;
}

// Sets g_kpe_abort_requested; for a signal handler.
void kpe_request_abort();
// The handler that does that and nothing else.
void kpe_sigint_handler(int);
// Sets g_kpe_abort_requested back to 0, unless the process has to end. For an interrupt that has had its effect or came
// too late.
void kpe_forget_interrupt();
