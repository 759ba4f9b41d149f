// What a copy of the text followed by a change costs: the price of an undo unit.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "buffer/line_store.h"
#include "buffer/text_buffer.h"
#include "system/block.h"

namespace {

LineStore numbered_lines(size_t count) {
    auto block = std::make_shared<Block>(count * 24);
    for (size_t i = 0; i < count; ++i) {
        char line[24];
        const int n = std::snprintf(line, sizeof line, "line %09zu\n", i);
        block->append({line, static_cast<size_t>(n)});
    }
    return LineStore::from_block(block);
}

// Bytes that the heap hands out now, its large pieces included.
double heap_bytes() {
    const struct mallinfo2 info = mallinfo2();
    return static_cast<double>(info.uordblks + info.hblkhd);
}

// Rows far apart, so that no two changes meet in a chunk by habit.
size_t some_row(size_t i, size_t count) { return i * 7919 * 104729 % count; }

void copy_and_edit(benchmark::State& state) {
    const size_t count = static_cast<size_t>(state.range(0));
    const LineStore original = numbered_lines(count);
    size_t i = 0;
    for (auto _ : state) {
        LineStore copy = original;
        copy.edit(some_row(++i, count)) += "!";
        benchmark::DoNotOptimize(copy);
    }
    constexpr size_t KEPT = 1000;
    LineStore current = original;
    std::vector<LineStore> kept;
    kept.reserve(KEPT);
    const double before = heap_bytes();
    for (size_t k = 0; k < KEPT; ++k) {
        kept.push_back(current);
        current.edit(some_row(k, count)) += "!";
    }
    state.counters["snapshot_KB"] = (heap_bytes() - before) / KEPT / 1024;
}
BENCHMARK(copy_and_edit)->Arg(10000)->Arg(1000000)->Arg(10000000)->Unit(benchmark::kMicrosecond);

void copy_insert_and_erase(benchmark::State& state) {
    const size_t count = static_cast<size_t>(state.range(0));
    const LineStore original = numbered_lines(count);
    const std::vector<std::string> line{"a new line"};
    size_t i = 0;
    for (auto _ : state) {
        LineStore copy = original;
        copy.insert(some_row(++i, count), line);
        const size_t row = some_row(i + 5, count);
        copy.erase(row, row + 1);
        benchmark::DoNotOptimize(copy);
    }
}
BENCHMARK(copy_insert_and_erase)->Arg(10000)->Arg(1000000)->Arg(10000000)->Unit(benchmark::kMicrosecond);

// 100 kept snapshots of a text of 10 MB with a change each; wanted: below 40 MB above the text.
void hundred_snapshots(benchmark::State& state) {
    std::string text;
    while (text.size() < 10000000) text += "a line of some fifty bytes that is always the same\n";
    double above = 0;
    for (auto _ : state) {
        TextBuffer buffer;
        buffer.set_text(text);
        std::vector<TextBuffer> kept;
        const double before = heap_bytes();
        for (size_t k = 0; k < 100; ++k) {
            kept.push_back(buffer);
            buffer.insert_char(some_row(k, buffer.line_count()), 3, '!');
        }
        above = heap_bytes() - before;
    }
    state.counters["above_text_MB"] = above / 1e6;
}
BENCHMARK(hundred_snapshots)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
