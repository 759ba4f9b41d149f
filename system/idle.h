#pragma once

#include <chrono>
#include <ctime>
#include <functional>
#include <list>
#include <optional>

// Work that is put off until kpe waits for input, so that it is never in the way of a command or a key.
class IdleWork {
public:
    explicit IdleWork(std::function<void()> work) : work_(std::move(work)) {}
    ~IdleWork() { withdraw(); }
    IdleWork(const IdleWork&) = delete;
    IdleWork& operator=(const IdleWork&) = delete;

    // Has it done once: when kpe waits, but not before that much time has passed. Asked for already: as it was.
    void ask(std::chrono::milliseconds delay);
    void withdraw();

    // --- For those who wait for input ---
    // How long they may wait at most before they call do_due(); nothing where no work is asked for.
    static std::optional<timespec> longest_wait();
    static void do_due();

private:
    using Clock = std::chrono::steady_clock;
    static std::list<IdleWork*>& asked();

    std::function<void()> work_;
    std::optional<Clock::time_point> due_;
};
