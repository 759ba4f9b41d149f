#include "system/wait.h"

#include <cerrno>
#include <unistd.h>

#include "system/signals.h"

Waited kpe_wait(const Wait& wait) {
    const SignalHold hold(wait.signals);
    if (wait.noted()) return Waited::Signal;
    pollfd input = {STDIN_FILENO, wait.events, 0};
    const int ready = ppoll(&input, wait.watches_input ? 1 : 0, wait.limit, &hold.before());
    if (ready < 0 && errno == EINTR) return Waited::Signal;
    return ready == 0 ? Waited::TimeUp : Waited::Input;
}
