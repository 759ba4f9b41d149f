#pragma once

#include <atomic>
#include <cstddef>
#include <new>

// Lets the allocation number nth of a change fail, be it of the heap or of pages: 1 is the first, 0 none.
extern std::atomic<size_t> g_failing_allocation;

// Makes the change with one allocation after the other failing, until it needs no more of them. unchanged() is called
// after each failure.
template <typename Change, typename Unchanged>
void fail_each_allocation(const Change& change, const Unchanged& unchanged) {
    for (size_t nth = 1;; ++nth) {
        g_failing_allocation = nth;
        try {
            change();
            g_failing_allocation = 0;
            return;
        } catch (const std::bad_alloc&) {
            g_failing_allocation = 0;
            unchanged();
        }
    }
}
