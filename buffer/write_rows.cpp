#include "buffer/write_rows.h"

#include "files/file_handle.h"
#include "system/file_mapping.h"

namespace {

bool put_plain_rows(const LineStore& lines, size_t rows, const KpePut& put) {
    for (const LineRun& run : lines.runs(0, rows))
        if (!put(run.bytes) || (!run.terminated && !put("\n"))) return false;
    return true;
}

bool put_rows_with_returns(const LineStore& lines, size_t rows, const KpePut& put) {
    for (size_t row = 0; row < rows; ++row)
        if (!put(lines.view(row)) || !put("\r\n")) return false;
    return true;
}

}  // namespace

bool kpe_write_rows(int fd, const LineStore& lines) {
    for (const LineRun& run : lines.runs()) {
        FileMapping::touch(run.bytes);  // the rest of the text is worth more than nothing
        if (!kpe_write_all(fd, run.bytes, run.terminated ? "" : "\n")) return false;
    }
    return true;
}

bool kpe_put_rows(const LineStore& lines, const TextForm& form, const KpePut& put) {
    const size_t ended = lines.size() - (form.open_end && !lines.empty() ? 1 : 0);
    const bool good = form.returns ? put_rows_with_returns(lines, ended, put) : put_plain_rows(lines, ended, put);
    return good && (ended == lines.size() || put(lines.view(ended)));
}
