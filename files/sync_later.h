#pragma once

// Asks the kernel to hand what was written to the open file to the disk, and does not wait for it: a disk that is slow,
// or hangs, must not hold up what is typed. The descriptor may be closed at once. Where the kernel cannot be asked, it
// is done here and now. false with errno set: nothing was asked for, as too much is under way (EAGAIN) or it failed.
bool kpe_sync_later(int fd);
