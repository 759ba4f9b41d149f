#include "system/threads.h"

#include <malloc.h>
#include <pthread.h>
#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <condition_variable>
#include <csignal>
#include <cstdlib>
#include <exception>
#include <mutex>

#include "system/ascii.h"
#include "system/signals.h"

namespace {

constexpr size_t MOST_THREADS = 8;
constexpr size_t STACK_SIZE = size_t{512} << 10;  // bytes; the usual size would count against limits of memory

const pid_t g_process = getpid();

// Work that is being shared. Threads take part as long as there is room for them.
struct Work {
    const std::function<void(size_t)>& call;
    const size_t parts;
    size_t room;  // for so many more threads
    size_t next = 0, running = 0;
    size_t failed_part = 0;
    std::exception_ptr failure;
};

class Crew {
public:
    void share(Work& work, size_t threads) {
        std::unique_lock lock(mutex_);
        work_ = &work;
        work.room = hire(threads - 1);
        if (work.room > 0) wanted_.notify_all();
        take_parts(work, lock);
        done_.wait(lock, [&] { return work.running == 0; });
        work_ = nullptr;
    }
    bool is_working() const { return work_ != nullptr; }  // for the thread that shares work, and within that work

private:
    // Takes one part after the other; the lock is held between them.
    static void take_parts(Work& work, std::unique_lock<std::mutex>& lock) {
        while (work.next < work.parts) {
            const size_t part = work.next++;
            ++work.running;
            lock.unlock();
            std::exception_ptr failure;
            try {
                work.call(part);
            } catch (...) {
                failure = std::current_exception();
            }
            lock.lock();
            --work.running;
            if (!failure) continue;
            work.next = work.parts;
            if (!work.failure || part < work.failed_part) {
                work.failure = failure;
                work.failed_part = part;
            }
        }
    }

    [[noreturn]] void wait_for_work() {
        std::unique_lock lock(mutex_);
        for (;;) {
            wanted_.wait(lock, [&] { return work_ && work_->room > 0 && work_->next < work_->parts; });
            Work& work = *work_;
            --work.room;
            take_parts(work, lock);
            if (work.running == 0) done_.notify_one();
        }
    }

    // How many of so many threads there are now.
    size_t hire(size_t threads) {
        pthread_attr_t attributes;
        if (hired_ >= threads || pthread_attr_init(&attributes) != 0) return std::min(hired_, threads);
        pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
        pthread_attr_setstacksize(&attributes, STACK_SIZE);
        // From one heap: that of a further thread grows page by page, and each time all threads wait for the kernel.
        mallopt(M_ARENA_MAX, 1);
        const SignalHold hold(kpe_all_but_crashes());  // a new thread inherits the mask
        const auto start = [](void* crew) -> void* { static_cast<Crew*>(crew)->wait_for_work(); };
        for (pthread_t thread; hired_ < threads; ++hired_)
            if (pthread_create(&thread, &attributes, start, this) != 0) break;
        pthread_attr_destroy(&attributes);
        return hired_;
    }

    std::mutex mutex_;
    std::condition_variable wanted_, done_;
    Work* work_ = nullptr;
    size_t hired_ = 0;
};

// Never destroyed: its threads sleep in it to the end of the process.
Crew& crew() {
    static Crew* const all = new Crew;
    return *all;
}

}  // namespace

size_t kpe_threads() {
    size_t threads = 1;
    cpu_set_t processors;
    const char* const wanted = std::getenv("KPE_THREADS");
    if (wanted)
        threads = kpe_stoul(wanted).value_or(1);
    else if (sched_getaffinity(0, sizeof processors, &processors) == 0)
        threads = static_cast<size_t>(CPU_COUNT(&processors));
    return std::clamp(threads, size_t{1}, MOST_THREADS);
}

void kpe_share_work(size_t parts, const std::function<void(size_t part)>& work) {
    const size_t threads = std::min(kpe_threads(), parts);
    if (threads <= 1 || getpid() != g_process || crew().is_working()) {
        for (size_t part = 0; part < parts; ++part) work(part);
        return;
    }
    Work shared{.call = work, .parts = parts, .room = 0, .failure = nullptr};
    crew().share(shared, threads);
    if (shared.failure) std::rethrow_exception(shared.failure);
}
