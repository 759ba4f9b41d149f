#include <algorithm>
#include <cctype>
#include <optional>
#include <string>
#include <utility>

#include "fuzz/targets.h"
#include "unit/editor_peek.h"

namespace {

using std::string;

constexpr long FAR = 1'000'000'000;  // more than any row, and safe to add to one

// The rules of line references and ranges, one by one, over plain numbers.
struct NaiveRanges {
    long lines, cursor;

    using Range = std::optional<std::pair<long, long>>;

    static string upper_trimmed(string text) {
        const auto blank = [](unsigned char c) { return std::isspace(c) != 0; };
        text.erase(text.begin(), std::find_if_not(text.begin(), text.end(), blank));
        text.erase(std::find_if_not(text.rbegin(), text.rend(), blank).base(), text.end());
        for (char& c : text) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
        return text;
    }
    // Abbreviated to at least that many letters.
    static bool means(const string& word, const string& full, size_t least) {
        return word.size() >= least && full.starts_with(word);
    }
    // Only digits: their value. most is the first value that is no number any more.
    static std::optional<long> number(const string& digits, const string& most) {
        if (digits.empty() || digits.find_first_not_of("0123456789") != string::npos) return std::nullopt;
        const string value = digits.substr(std::min(digits.find_first_not_of('0'), digits.size()));
        if (value.size() > most.size() || (value.size() == most.size() && value >= most)) return std::nullopt;
        return value.size() > 9 ? FAR : value.empty() ? 0 : std::stol(value);
    }
    std::optional<long> reference(const string& text) const {
        const string t = upper_trimmed(text);
        if (t == "." || t == "CURRENT") return cursor;
        if (means(t, "BEGIN", 1) || t == "FIRST" || t == "START") return 0;
        if (means(t, "END", 1) || means(t, "LAST", 2)) return lines - 1;
        if (t.starts_with('.')) {
            const string sign = upper_trimmed(t.substr(1));
            if (sign.empty() || (sign[0] != '+' && sign[0] != '-')) return std::nullopt;
            const auto count = number(upper_trimmed(sign.substr(1)), "9223372036854775808");
            if (!count) return std::nullopt;
            return std::clamp(sign[0] == '+' ? cursor + *count : cursor - *count, 0L, lines - 1);
        }
        const auto line = number(t, "18446744073709551616");
        if (!line || *line == 0) return std::nullopt;
        return std::min(*line, lines) - 1;
    }
    Range range(const string& text) const {
        const string t = upper_trimmed(text.substr(0, text.find('/')));
        if (t.empty()) return std::nullopt;
        if (means(t, "WHOLE", 2) || t == "ALL") return {{0, lines - 1}};
        if (means(t, "REST", 1)) return {{cursor, lines - 1}};
        size_t at = t.find(" THRU "), size = 6;
        if (at == string::npos) at = t.find(':'), size = 1;
        if (at == string::npos) {
            at = t.find('-');
            if (at == 0 || at + 1 >= t.size() || upper_trimmed(t.substr(0, at)) == ".") at = string::npos;
        }
        const auto first = reference(t.substr(0, at));
        const auto last = at == string::npos ? first : reference(t.substr(at + size));
        if (!first || !last) return std::nullopt;
        return {{std::min(*first, *last), std::max(*first, *last)}};
    }
};

void check_range(EditorPeek& peek, const NaiveRanges& naive, const string& text) {
    const auto got = peek.line_range(text);
    const auto want = naive.range(text);
    const bool same =
        got ? want && static_cast<long>(got->first) == want->first && static_cast<long>(got->last) == want->second
            : !want;
    fuzz_check(same, "a range is what its rules say", text);
}

}  // namespace

// A byte for the size of the text and the cursor's row, and a command line.
void fuzz_parser(std::string_view input) {
    const size_t options = input.empty() ? 0 : static_cast<unsigned char>(input.front());
    const string line(input.substr(std::min<size_t>(1, input.size())));
    const size_t lines = 1 + (options & 15), cursor = std::min(options >> 4, lines - 1);
    static EditorPeek peek;
    peek.buffer().set_text(string(lines - 1, '\n') + "x");
    peek.set_cursor(cursor, 0);
    const NaiveRanges naive{static_cast<long>(lines), static_cast<long>(cursor)};

    const auto command = peek.parse(line);
    const bool blank = line.find_first_not_of(" \t\n\v\f\r") == string::npos;
    fuzz_check(command.verb.empty() == blank, "only a blank line has no verb", line);
    fuzz_check(NaiveRanges::upper_trimmed(command.verb) == command.verb, "a verb is in upper case", line);
    if (command.verb == "GOTO-LINE" && (command.original[0] == '.' || std::isdigit(command.original[0])))
        fuzz_check(command.args.find_first_not_of("0123456789") == string::npos, "a line is gone to by number", line);
    check_range(peek, naive, line);
    check_range(peek, naive, command.args);

    string rest = line;
    EditorPeek::qualifiers(rest);
    fuzz_check(rest.size() <= line.size(), "qualifiers are cut out", line);
    peek.parse(rest);
}
