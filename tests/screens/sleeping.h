#pragma once

#include <sys/syscall.h>
#include <sys/types.h>

#include <fstream>
#include <iterator>
#include <set>
#include <string>

// The letter of the process's state: S asleep, T stopped and so on; a blank when there is no such process.
inline char state_of(pid_t pid) {
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    const std::string line{std::istreambuf_iterator<char>(stat), {}};
    const size_t name_end = line.rfind(") ");
    return name_end == std::string::npos ? ' ' : line[name_end + 2];
}

// Whether the process sleeps in a call that reads or waits for input. Where the system does not tell the
// call, sleeping is enough.
inline bool sleeps_in_read(pid_t pid) {
    const std::string proc = "/proc/" + std::to_string(pid);
    if (state_of(pid) != 'S') return false;
    std::string call;  // its number, or "running"
    if (!(std::ifstream(proc + "/syscall") >> call)) return true;
    static const std::set<int> READING = {
        SYS_read, SYS_readv,  SYS_ppoll,      SYS_pselect6, SYS_epoll_pwait,
#ifdef SYS_poll
        SYS_poll, SYS_select, SYS_epoll_wait,
#endif
    };
    return call != "running" && READING.count(std::stoi(call)) > 0;
}
