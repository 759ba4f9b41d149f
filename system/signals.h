#pragma once

#include <csignal>
#include <initializer_list>

// The signals that end the process and can be caught, but for those of a crash: of users, of closing terminals, of
// the system and of other programs. kpe gives them all the same meaning.
const sigset_t& kpe_ending_signals();

// Has handler called at the signal; before (may be null) gets what was in force. Calls that wait are interrupted by it.
void kpe_set_handler(int number, void (*handler)(int), struct sigaction* before = nullptr);
// The same unless the signal is ignored: who started the process wants it so.
void kpe_set_handler_unless_ignored(int number, void (*handler)(int), int flags = 0);

// Holds signals back while it lives; what arrived meanwhile is delivered at its end.
class SignalHold {
public:
    explicit SignalHold(std::initializer_list<int> signals);
    explicit SignalHold(const sigset_t& signals);
    ~SignalHold();
    SignalHold(const SignalHold&) = delete;
    SignalHold& operator=(const SignalHold&) = delete;
    const sigset_t& before() const { return before_; }  // for a wait that lets them in

private:
    sigset_t before_;
};

// The ending signals and those given as well.
sigset_t kpe_ending_signals_and(std::initializer_list<int> more);
