#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "fuzz/targets.h"

// For the fuzzer library, whose documentation (LLVM: "libFuzzer") tells its options. KPE_FUZZ names the target.

namespace {

const FuzzTarget* g_target = nullptr;

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
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
