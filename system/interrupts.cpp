#include "system/interrupts.h"

volatile std::sig_atomic_t g_kpe_abort_requested = 0;
volatile std::sig_atomic_t g_kpe_end_signal = 0;

void kpe_request_abort() { __atomic_store_n(&g_kpe_abort_requested, 1, __ATOMIC_RELAXED); }

void kpe_sigint_handler(int) { kpe_request_abort(); }

void kpe_forget_interrupt() {
    g_kpe_abort_requested = 0;
    if (g_kpe_end_signal) g_kpe_abort_requested = 1;  // it may have come just now
}
