#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "fuzz/targets.h"

// kpe_replay TARGET FILE|DIRECTORY...: runs the files through the target, and then, for the seconds of KPE_FUZZ_SECONDS
// (1), what chance makes of their bytes and of the words. Each file and each seed is named before it is run;
// KPE_FUZZ_SEED runs one alone.

namespace {

using Random = std::mt19937;

// Pieces of the inputs, words and any bytes; the first bytes, which are options for many targets, are any.
std::string made_by_chance(const std::vector<std::string>& inputs, const std::vector<std::string>& words,
                           Random& random) {
    std::string made(1, static_cast<char>(random()));
    for (auto pieces = random() % 24; pieces > 0; --pieces) {
        const std::string& input = inputs[random() % inputs.size()];
        const size_t from = random() % (input.size() + 1);
        switch (random() % 4) {
            case 0:
                made += static_cast<char>(random());
                break;
            case 1:
                made += input.substr(from, random() % 9);
                break;
            case 2:
                made += words[random() % words.size()];
                break;
            default:
                made += "\n \r\x1a/\"a1*"[random() % 9];
        }
    }
    return made;
}

unsigned long setting(const char* name, unsigned long otherwise) {
    const char* const value = std::getenv(name);
    return value ? std::strtoul(value, nullptr, 10) : otherwise;
}

}  // namespace

int main(int argc, char** argv) {
    namespace fs = std::filesystem;
    const FuzzTarget* const target = argc > 2 ? fuzz_target(argv[1]) : nullptr;
    if (!target) {
        std::fprintf(stderr, "usage: kpe_replay TARGET FILE|DIRECTORY...\n");
        return 2;
    }
    std::vector<fs::path> files;
    for (int i = 2; i < argc; ++i) {
        const fs::path path = fs::absolute(argv[i]);
        if (!fs::is_directory(path))
            files.push_back(path);
        else
            std::copy(fs::directory_iterator(path), fs::directory_iterator(), std::back_inserter(files));
    }
    std::sort(files.begin(), files.end());
    std::vector<std::string> inputs;
    for (const fs::path& file : files) {
        std::fprintf(stderr, "%s\n", file.c_str());
        std::ifstream in(file, std::ios::binary);
        inputs.emplace_back(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
        if (!in) return 1;
        inputs.back().resize(std::min(inputs.back().size(), LONGEST_INPUT));
        target->run(inputs.back());
    }
    if (inputs.empty()) return 1;  // a corpus that is not there tests nothing
    const std::vector<std::string> words = fuzz_words();
    const unsigned long only = setting("KPE_FUZZ_SEED", 0);
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(setting("KPE_FUZZ_SECONDS", 1));
    for (unsigned long seed = only ? only : std::random_device{}(); std::chrono::steady_clock::now() < end; ++seed) {
        std::fprintf(stderr, "KPE_FUZZ_SEED=%lu\n", seed);
        Random random(static_cast<unsigned>(seed));
        target->run(made_by_chance(inputs, words, random));
        if (only) break;
    }
    return 0;
}
