#pragma once

#include <cstddef>
#include <functional>
#include <string>

// Any bytes may come to be a command, so while a Guard lives a session can reach only so far:
//
// - it opens, makes, renames and removes files below root alone (EACCES for every other name), which hold no links;
// - it starts no process (EAGAIN), and files grow to 8 MB (EFBIG);
// - 128 MB of memory beyond what there was make std::bad_alloc, and so does the allocation number failing once (0:
// none);
// - after 300 ms of processor time somebody presses Ctrl/C, again and again;
// - fsync does nothing, and no bell lasts.
//
// A wait that only Ctrl/C ends gets it at once; a wait for input that is not there calls on_wait first, which may
// give some. One Guard at a time.
class Guard {
public:
    explicit Guard(const std::string& root, size_t failing = 0, std::function<void()> on_wait = nullptr);
    ~Guard();
    Guard(const Guard&) = delete;
    Guard& operator=(const Guard&) = delete;
};

// What the session's end throws in place of ending the process.
struct EndOfSession {
    int status;
};
