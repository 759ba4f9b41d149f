#include "system/ascii.h"

#include <algorithm>
#include <stdexcept>

std::string_view kpe_trim(std::string_view text) {
    while (!text.empty() && kpe_is_space(text.front())) text.remove_prefix(1);
    while (!text.empty() && kpe_is_space(text.back())) text.remove_suffix(1);
    return text;
}

std::string_view kpe_take_line(std::string_view& text) {
    const std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(line.size() + 1, text.size()));
    return line;
}

bool kpe_all_digits(std::string_view text) {
    if (text.empty()) return false;
    for (const char c : text) {
        if (!kpe_is_digit(c)) return false;
    }
    return true;
}

std::pair<std::string_view, std::string_view> kpe_first_word(std::string_view text) {
    text = kpe_trim(text);
    size_t end = 0;
    while (end < text.size() && !kpe_is_space(text[end])) ++end;
    return {text.substr(0, end), kpe_trim(text.substr(end))};
}

namespace {

// One std::sto... conversion; the two kinds of failure that it throws become nothing.
template <class Number, class Convert>
std::optional<Number> converted(std::string_view text, Convert convert) {
    try {
        return convert(std::string(text));
    } catch (const std::logic_error&) {  // invalid_argument and out_of_range
        return std::nullopt;
    }
}

}  // namespace

std::optional<int> kpe_stoi(std::string_view text) {
    return converted<int>(text, [](const std::string& s) { return std::stoi(s); });
}

std::optional<long> kpe_stol(std::string_view text) {
    return converted<long>(text, [](const std::string& s) { return std::stol(s); });
}

std::optional<unsigned long> kpe_stoul(std::string_view text) {
    return converted<unsigned long>(text, [](const std::string& s) { return std::stoul(s); });
}

std::optional<int> kpe_take_int(std::string_view& text) {
    size_t end = 0;
    const auto number = converted<int>(text, [&](const std::string& s) { return std::stoi(s, &end); });
    text.remove_prefix(end);
    return number;
}

std::string kpe_shell_word(std::string_view text) {
    const auto plain = [](char c) {
        return kpe_is_alpha(c) || kpe_is_digit(c) || std::string_view("_./+-@%,:=").find(c) != std::string_view::npos;
    };
    if (!text.empty() && std::all_of(text.begin(), text.end(), plain)) return std::string(text);
    std::string word = "'";
    for (const char c : text) word += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return word + "'";
}
