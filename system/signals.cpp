#include "system/signals.h"

namespace {

// SIGIO and SIGPOLL are one number.
constexpr int ENDING[] = {SIGHUP,  SIGINT,    SIGQUIT, SIGTERM, SIGPIPE,   SIGUSR1, SIGUSR2,
                          SIGALRM, SIGVTALRM, SIGPROF, SIGXCPU, SIGSTKFLT, SIGIO,   SIGPWR};

sigset_t make_ending_signals() {
    sigset_t all;
    sigemptyset(&all);
    for (const int number : ENDING) sigaddset(&all, number);
    for (int number = SIGRTMIN; number <= SIGRTMAX; ++number) sigaddset(&all, number);
    return all;
}

}  // namespace

const sigset_t& kpe_ending_signals() {
    static const sigset_t all = make_ending_signals();
    return all;
}

sigset_t kpe_all_but_crashes() {
    sigset_t all;
    sigfillset(&all);
    for (const int number : KPE_CRASH_SIGNALS) sigdelset(&all, number);
    return all;
}

sigset_t kpe_ending_signals_and(std::initializer_list<int> more) {
    sigset_t all = kpe_ending_signals();
    for (const int number : more) sigaddset(&all, number);
    return all;
}

void kpe_set_handler(int number, void (*handler)(int), struct sigaction* before) {
    struct sigaction action {};
    action.sa_handler = handler;
    sigemptyset(&action.sa_mask);
    sigaction(number, &action, before);
}

void kpe_set_handler_unless_ignored(int number, void (*handler)(int), int flags) {
    struct sigaction action {
    }, before{};
    action.sa_handler = handler;
    action.sa_flags = flags;
    sigemptyset(&action.sa_mask);
    if (sigaction(number, &action, &before) == 0 && before.sa_handler == SIG_IGN) sigaction(number, &before, nullptr);
}

SignalHold::SignalHold(const sigset_t& signals) { pthread_sigmask(SIG_BLOCK, &signals, &before_); }

SignalHold::SignalHold(std::initializer_list<int> signals) {
    sigset_t held;
    sigemptyset(&held);
    for (const int number : signals) sigaddset(&held, number);
    pthread_sigmask(SIG_BLOCK, &held, &before_);
}

SignalHold::~SignalHold() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
