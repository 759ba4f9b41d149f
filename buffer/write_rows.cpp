#include "buffer/write_rows.h"

#include "files/file_handle.h"

bool kpe_write_rows(int fd, const LineStore& lines) {
    for (const LineRun& run : lines.runs())
        if (!kpe_write_all(fd, run.bytes, run.terminated ? "" : "\n")) return false;
    return true;
}
