#pragma once

#include <csignal>
#include <initializer_list>

// The signals that end the process and can be caught, but for those of a crash: of users, of closing terminals, of
// the system and of other programs. kpe gives them all the same meaning.
const sigset_t& kpe_ending_signals();

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
