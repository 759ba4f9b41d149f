#pragma once

// Asks the kernel to write to disk what was written to the open file, and does not wait for it, because a slow disk
// must not delay what is typed. The descriptor may be closed at once. Where the kernel cannot be asked, the function
// syncs the file itself. Returns false with errno set if nothing was asked for: because too much is under way (EAGAIN),
// or because it failed.
bool kpe_sync_later(int fd);
