#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "fuzz/targets.h"

// kpe_replay TARGET FILE|DIRECTORY...: runs the files through the target, and names each before it is run.
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
    for (const fs::path& file : files) {
        std::fprintf(stderr, "%s\n", file.c_str());
        std::ifstream in(file, std::ios::binary);
        const std::string bytes{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
        if (!in) return 1;
        target->run(std::string_view(bytes).substr(0, LONGEST_INPUT));
    }
    return files.empty() ? 1 : 0;  // a corpus that is not there tests nothing
}
