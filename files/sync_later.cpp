#include "files/sync_later.h"

#include <array>
#include <cerrno>
#include <ctime>
#include <linux/aio_abi.h>
#include <optional>
#include <sys/syscall.h>
#include <unistd.h>

#include "files/file_handle.h"

namespace {

constexpr unsigned MOST_UNDER_WAY = 8;

// The kernel's asynchronous calls have no functions in the C library: see io_submit(2).
std::optional<aio_context_t> make_context() {
    aio_context_t context = 0;
    if (syscall(SYS_io_setup, MOST_UNDER_WAY, &context) != 0) return std::nullopt;
    return context;
}

void take_finished(aio_context_t context) {
    std::array<io_event, MOST_UNDER_WAY> events;
    timespec at_once{};
    syscall(SYS_io_getevents, context, 0, MOST_UNDER_WAY, events.data(), &at_once);
}

}  // namespace

bool kpe_sync_later(int fd) {
    static const std::optional<aio_context_t> context = make_context();
    if (!context) return kpe_sync(fd) == 0;
    take_finished(*context);
    iocb request{};
    request.aio_lio_opcode = IOCB_CMD_FSYNC;
    request.aio_fildes = static_cast<uint32_t>(fd);
    iocb* const requests[] = {&request};
    if (syscall(SYS_io_submit, *context, 1, requests) == 1) return true;
    return errno != EAGAIN && kpe_sync(fd) == 0;
}
