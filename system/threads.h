#pragma once

#include <cstddef>
#include <functional>

// How many threads share long work: as many as there are processors for this process, but at most 8. The variable
// KPE_THREADS says another number, from 1 to 8.
size_t kpe_threads();

// Calls work(part) for each part from 0 on, parts in all, and returns when all of them are done. The calling thread and
// some others take one part after the other, in ascending order. What the parts do must not depend on who does them, or
// on what other parts are doing at the same time.
//
// If a part throws, no further part is begun, and the exception is thrown on; if several do, that of the first part.
//
// The other threads are made when they are needed for the first time, and sleep from then on until there is work. Where
// the system refuses a thread, fewer share the work. Only the thread that runs main() may call this. In a child process
// after fork, where there are no other threads, and from within work, the caller does all parts by itself.
void kpe_share_work(size_t parts, const std::function<void(size_t part)>& work);
