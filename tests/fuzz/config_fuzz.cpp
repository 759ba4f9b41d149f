#include <cstdlib>
#include <optional>
#include <sstream>
#include <string>
#include <strings.h>

#include "config/n3_rzconfig.h"
#include "fuzz/session.h"
#include "fuzz/targets.h"

namespace {

using std::string;

// The first value of the key, by the rules of a configuration line.
std::optional<string> naive_value(const string& file, const string& key) {
    std::istringstream in(file);
    for (string line; std::getline(in, line);) {
        const size_t start = line.find_first_not_of(" \t");
        if (start == line.npos || line[start] == '#' || line[start] == '[') continue;
        if (line.size() - start < key.size() || strncasecmp(line.data() + start, key.data(), key.size()) != 0) continue;
        string rest = line.substr(start + key.size());
        if (!rest.empty() && rest[0] != ' ' && rest[0] != '\t') continue;
        rest.erase(0, rest.find_first_not_of(" \t"));
        string word = rest.substr(0, rest.find_first_of(" \t"));
        if (word.size() > 1 && word[0] == word.back() && (word[0] == '"' || word[0] == '\''))
            word = word.substr(1, word.size() - 2);
        return word;
    }
    return std::nullopt;
}

}  // namespace

// The key in the first line, and a file of the runtime's settings.
void fuzz_config(std::string_view input) {
    static const bool prepared = [] {
        setenv("RZ_CONFIG", fuzz_directory().path("rz.ini").c_str(), 1);
        return true;
    }();
    string key(fuzz_take(input, '\n'));
    if (key.empty() || key.find('\0') != key.npos) key = "KPE/VERSIONING";
    fuzz_directory().put("rz.ini", input);

    string value = "as it was";
    const bool found = prepared && n3rz::config_lookup(key.c_str(), value, "fuzz");
    fuzz_check(value == naive_value(string(input), key).value_or("as it was"), "the value of the key", key);
    fuzz_check(found == naive_value(string(input), key).has_value(), "whether the key is there", key);
    const bool on =
        !value.empty() && (string("YyTt1").find(value[0]) != string::npos || strncasecmp(value.c_str(), "ON", 2) == 0);
    fuzz_check(n3rz::config_is_on(value) == on, "what is on", value);
}
