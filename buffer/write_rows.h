#pragma once

#include <functional>
#include <string_view>

#include "buffer/line_store.h"

// Writes the rows at the file's position, each with a line break. On failure returns false with errno set; the file may
// hold a part of the rows then.
bool kpe_write_rows(int fd, const LineStore& lines);

// How a text stands in a file: with a carriage return in front of each line break, without a line break behind the last
// row.
struct TextForm {
    bool returns = false, open_end = false;
};
// Takes some bytes; returns false to stop.
using KpePut = std::function<bool(std::string_view bytes)>;
// Puts the rows as they stand in a file, untouched bytes in large pieces. Returns whether put took all of them.
bool kpe_put_rows(const LineStore& lines, const TextForm& form, const KpePut& put);
