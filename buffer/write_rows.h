#pragma once

#include "buffer/line_store.h"

// Writes the rows at the file's position, each with a line break. On failure returns false with errno set; the file may
// hold a part of the rows then.
bool kpe_write_rows(int fd, const LineStore& lines);
