#include "fuzz/targets.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <string>
#include <unistd.h>

namespace {

// A duplicate: the driver closes standard error, on which the sessions complain.
const int g_report = dup(STDERR_FILENO);

}  // namespace

const FuzzTarget* fuzz_target(std::string_view name) {
    const auto target = std::find_if(std::begin(FUZZ_TARGETS), std::end(FUZZ_TARGETS),
                                     [&](const FuzzTarget& row) { return row.name == name; });
    return target == std::end(FUZZ_TARGETS) ? nullptr : target;
}

std::vector<std::string> fuzz_words(bool as_written) {
    std::ifstream in(KPE_SOURCE_DIR "/tests/fuzz/words.dict");
    std::vector<std::string> words;
    for (std::string line; std::getline(in, line);) {
        for (size_t from = 0, to; (from = line.find('"', from)) != line.npos && line[0] != '#'; from = to + 1) {
            to = line.find('"', from + 1);
            std::string word = line.substr(from + 1, to - from - 1);
            for (size_t at; !as_written && (at = word.find("\\x")) != word.npos;)
                word.replace(at, 4, 1, static_cast<char>(std::stoi(word.substr(at + 2, 2), nullptr, 16)));
            words.push_back(word);
        }
    }
    return words;
}

void fuzz_check(bool holds, std::string_view what, std::string_view where) {
    if (holds) return;
    const std::string line = "does not hold: " + std::string(what) + " [" + std::string(where) + "]\n";
    if (write(g_report, line.data(), line.size()) < 0) std::abort();
    std::abort();
}

std::string_view fuzz_take(std::string_view& input, char cut) {
    const std::string_view piece = input.substr(0, input.find(cut));
    input.remove_prefix(std::min(piece.size() + 1, input.size()));
    return piece;
}
