#pragma once

#include <csignal>
#include <initializer_list>

// The signals that end the process and can be caught, except those of a crash. Users, closing terminals, the system and
// other programs send them; kpe treats them all in the same way.
const sigset_t& kpe_ending_signals();

// The signals of a crash.
inline constexpr int KPE_CRASH_SIGNALS[] = {SIGSEGV, SIGABRT, SIGBUS, SIGFPE, SIGILL, SIGSYS, SIGTRAP};
// Every other signal.
sigset_t kpe_all_but_crashes();

// Has handler called when the signal comes. before (may be null) gets the action that was in force. System calls that
// wait are interrupted by the signal.
void kpe_set_handler(int number, void (*handler)(int), struct sigaction* before = nullptr);
// The same, but a signal that is ignored stays ignored, because whoever started the process wanted that.
void kpe_set_handler_unless_ignored(int number, void (*handler)(int), int flags = 0);

// Holds signals back for as long as the object lives. Those that arrive meanwhile are delivered when it goes.
class SignalHold {
public:
    explicit SignalHold(std::initializer_list<int> signals);
    explicit SignalHold(const sigset_t& signals);
    ~SignalHold();
    SignalHold(const SignalHold&) = delete;
    SignalHold& operator=(const SignalHold&) = delete;
    const sigset_t& before() const { return before_; }  // the mask from before, for a wait that lets them in

private:
    sigset_t before_;
};

// The signals of kpe_ending_signals and those of more.
sigset_t kpe_ending_signals_and(std::initializer_list<int> more);
