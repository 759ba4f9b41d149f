#include "editor/kpe.h"
#include "system/ascii.h"

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
