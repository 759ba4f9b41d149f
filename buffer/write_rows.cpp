#include "buffer/write_rows.h"

#include "files/file_handle.h"

bool kpe_write_rows(int fd, const LineStore& lines) {
    for (size_t row = 0; row < lines.size();) {
        const LineStore::Run run = lines.run_from(row);
        if (!kpe_write_all(fd, run.bytes, run.terminated ? "" : "\n")) return false;
        row += run.rows;
    }
    return true;
}
