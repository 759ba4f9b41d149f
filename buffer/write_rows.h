#pragma once

#include "buffer/line_store.h"

// Writes the rows at the file's position, each with its line break. false with errno set; the file may hold a part
// then.
bool kpe_write_rows(int fd, const LineStore& lines);
