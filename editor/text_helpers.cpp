#include "editor/text_helpers.h"

#include <stdexcept>

#include "editor/kpe.h"

bool kpe_is_space(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
bool kpe_is_digit(char c) { return c >= '0' && c <= '9'; }
bool kpe_is_alpha(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
bool kpe_is_punct(char c) { return c > ' ' && c < 127 && !kpe_is_alpha(c) && !kpe_is_digit(c); }
char kpe_to_upper(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; }
char kpe_to_lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

std::string_view kpe_trim(std::string_view text) {
    while (!text.empty() && kpe_is_space(text.front())) text.remove_prefix(1);
    while (!text.empty() && kpe_is_space(text.back())) text.remove_suffix(1);
    return text;
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

std::string Editor::trim(const std::string& text) { return std::string(kpe_trim(text)); }

std::string Editor::upper(const std::string& text) {
    std::string result = text;
    for (char& c : result) c = kpe_to_upper(c);
    return result;
}

bool Editor::starts_with_ci(const std::string& s, const std::string& prefix) {
    if (s.size() < prefix.size()) return false;
    for (size_t i = 0; i < prefix.size(); ++i) {
        if (kpe_to_upper(s[i]) != kpe_to_upper(prefix[i])) return false;
    }
    return true;
}

std::string Editor::strip_optional_quotes(const std::string& text) {
    const bool quoted = text.size() >= 2 && text.front() == '"' && text.back() == '"';
    return quoted ? text.substr(1, text.size() - 2) : text;
}

bool Editor::is_comment_or_blank(const std::string& text) {
    const std::string_view t = kpe_trim(text);
    return t.empty() || t.front() == '!' || t.front() == '#' || t.front() == ';';
}

bool Editor::is_abbrev(const std::string& word, const char* full, size_t min_len) {
    return word.size() >= min_len && std::string_view(full).starts_with(word);
}

std::string Editor::strip_qualifiers_for_range(const std::string& text) { return trim(text.substr(0, text.find('/'))); }
