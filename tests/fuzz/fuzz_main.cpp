#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "fuzz/targets.h"
#include "unit/scratch.h"

// For the fuzzer library, whose documentation (LLVM: "libFuzzer") tells its options. KPE_FUZZ names the target.

namespace {

const FuzzTarget* g_target = nullptr;

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* count, char*** arguments) {
    // The library wants a file with a word a line.
    static const Scratch scratch;
    std::string lines;
    for (const std::string& word : fuzz_words(/*as_written=*/true)) lines += '"' + word + "\"\n";
    static std::string dictionary = "-dict=" + scratch.put("words", lines);
    for (int i = 1; i < *count; ++i)
        if (std::string_view((*arguments)[i]).starts_with("-dict=")) (*arguments)[i] = dictionary.data();
    const char* const name = std::getenv("KPE_FUZZ");
    g_target = fuzz_target(name ? name : "");
    if (g_target) return 0;
    std::fprintf(stderr, "kpe_fuzz: KPE_FUZZ names no target\n");
    std::exit(1);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    g_target->run({reinterpret_cast<const char*>(data), size < LONGEST_INPUT ? size : LONGEST_INPUT});
    return 0;
}
