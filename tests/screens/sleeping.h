#pragma once

#include <sys/syscall.h>
#include <sys/types.h>

#include <fstream>
#include <iterator>
#include <set>
#include <string>

// Whether the process sleeps in a call that reads or waits for input. Where the system does not tell the
// call, sleeping is enough.
inline bool sleeps_in_read(pid_t pid) {
    const std::string proc = "/proc/" + std::to_string(pid);
    std::ifstream stat(proc + "/stat");
    const std::string line{std::istreambuf_iterator<char>(stat), {}};
    const size_t name_end = line.rfind(") ");
    if (name_end == std::string::npos || line[name_end + 2] != 'S') return false;
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
