#pragma once

#include <cstddef>
#include <iterator>
#include <string_view>

// Rows that lie one behind the other in memory. Each is followed by one "\n", which belongs to the run. An edited row
// is a run of its own, whose bytes have no "\n"; terminated is false then.
struct LineRun {
    size_t first_row = 0, rows = 0;
    std::string_view bytes;
    bool terminated = true;
};

// The runs that rows [first, last) lie in, from the first to the last, for a loop over them:
//
//     for (const LineRun& run : lines.runs(first, last))
//
// Lines is a LineStore or a LineChunk, which must not change or go meanwhile, and last is not behind its end.
template <class Lines>
class LineRuns {
public:
    LineRuns(const Lines& lines, size_t first, size_t last) : lines_(lines), first_(first), last_(last) {}

    class Iterator {
    public:
        Iterator(const LineRuns& runs, size_t row) : runs_(runs), run_(runs.from(row)) {}
        const LineRun& operator*() const { return run_; }
        Iterator& operator++() {
            run_ = runs_.from(run_.first_row + run_.rows);
            return *this;
        }
        bool operator==(std::default_sentinel_t) const { return run_.rows == 0; }

    private:
        const LineRuns& runs_;
        LineRun run_;
    };
    Iterator begin() const { return {*this, first_}; }
    std::default_sentinel_t end() const { return {}; }

private:
    // The run that starts at row, as far as it lies in front of last_; no rows from last_ on.
    LineRun from(size_t row) const {
        if (row >= last_) return {};
        LineRun run = lines_.run_from(row);
        if (row + run.rows <= last_) return run;
        const std::string_view line = lines_.view(last_ - 1);
        run.rows = last_ - row;
        run.bytes = {run.bytes.data(), static_cast<size_t>(line.data() + line.size() + 1 - run.bytes.data())};
        return run;
    }

    const Lines& lines_;
    const size_t first_, last_;
};
