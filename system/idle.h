#pragma once

#include <chrono>
#include <ctime>
#include <functional>
#include <list>
#include <optional>

// Work that is put off until kpe waits for input, so that it never delays a command or a key.
class IdleWork {
public:
    explicit IdleWork(std::function<void()> work) : work_(std::move(work)) {}
    ~IdleWork() { withdraw(); }
    IdleWork(const IdleWork&) = delete;
    IdleWork& operator=(const IdleWork&) = delete;

    // Has the work done once, when kpe waits for input and that much time has passed. If it was asked for already, the
    // earlier request stands.
    void ask(std::chrono::milliseconds delay);
    void withdraw();  // the work is not done any more

    // --- For those who wait for input ---
    // The longest time that they may wait before they have to call do_due(). Nothing if no work is asked for.
    static std::optional<timespec> longest_wait();
    static void do_due();

private:
    using Clock = std::chrono::steady_clock;
    static std::list<IdleWork*>& asked();

    std::function<void()> work_;
    std::optional<Clock::time_point> due_;
};
