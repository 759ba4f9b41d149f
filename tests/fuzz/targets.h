#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

// What is fuzzed: each target takes any bytes, does with them what kpe would, and compares what comes out with a
// plain oracle or with what must always hold. A fault aborts. kpe_fuzz drives one of them by coverage, kpe_replay
// runs the files of corpus/ through them.
constexpr size_t LONGEST_INPUT = 4096;  // longer ones are cut

void fuzz_parser(std::string_view input);    // a command line: recognition, qualifiers, ranges
void fuzz_match(std::string_view input);     // search strings over lines, against backtracking
void fuzz_config(std::string_view input);    // configuration files and what is looked up in them
void fuzz_versions(std::string_view input);  // names with versions, in a directory with some
void fuzz_script(std::string_view input);    // a whole session in line mode, typed
void fuzz_startup(std::string_view input);   // startup and command files, journals to recover from
void fuzz_keys(std::string_view input);      // keys typed in screen mode, with changes of the terminal's size

struct FuzzTarget {
    std::string_view name;
    void (*run)(std::string_view input);
};
inline constexpr FuzzTarget FUZZ_TARGETS[] = {
    {"parser", fuzz_parser}, {"match", fuzz_match},   {"script", fuzz_script},     {"startup", fuzz_startup},
    {"keys", fuzz_keys},     {"config", fuzz_config}, {"versions", fuzz_versions},
};

// The target of that name, or null.
const FuzzTarget* fuzz_target(std::string_view name);
// What words.dict holds, the bytes that "\xNN" stands for in their place unless as_written.
std::vector<std::string> fuzz_words(bool as_written = false);
// Aborts, after a line on standard error that tells what did not hold and where.
void fuzz_check(bool holds, std::string_view what, std::string_view where = {});
// What comes before the first cut, which input loses together with it; all of input when it has none.
std::string_view fuzz_take(std::string_view& input, char cut);
