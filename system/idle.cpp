#include "system/idle.h"

#include <algorithm>

std::list<IdleWork*>& IdleWork::asked() {
    static std::list<IdleWork*> all;
    return all;
}

void IdleWork::ask(std::chrono::milliseconds delay) {
    if (due_) return;
    due_ = Clock::now() + delay;
    asked().push_back(this);
}

void IdleWork::withdraw() {
    if (!due_) return;
    due_.reset();
    asked().remove(this);
}

std::optional<timespec> IdleWork::longest_wait() {
    if (asked().empty()) return std::nullopt;
    const auto earlier = [](const IdleWork* a, const IdleWork* b) { return *a->due_ < *b->due_; };
    const auto due = *(*std::min_element(asked().begin(), asked().end(), earlier))->due_;
    const auto left = std::max(due - Clock::now(), Clock::duration::zero());
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(left);
    const auto rest = std::chrono::duration_cast<std::chrono::nanoseconds>(left - seconds);
    return timespec{static_cast<time_t>(seconds.count()), static_cast<long>(rest.count())};
}

void IdleWork::do_due() {
    const auto now = Clock::now();
    const std::list<IdleWork*> all = asked();
    for (IdleWork* const job : all) {
        if (!job->due_ || *job->due_ > now) continue;
        job->withdraw();
        job->work_();
    }
}
