#include <algorithm>

#include "editor/kpe.h"
#include "system/ascii.h"

namespace {

using Qualifiers = Editor::Qualifiers;

// ":n" right behind BRIEF. A number that cannot be converted keeps the width, and is dropped all the same.
void read_brief_value(const std::string& text, size_t& pos, Qualifiers& q) {
    if (pos == text.size() || text[pos] != ':') return;
    const size_t first = ++pos;
    while (pos < text.size() && kpe_is_digit(text[pos])) ++pos;
    if (const auto n = kpe_stoi(text.substr(first, pos - first))) q.brief_cols = std::max(1, *n);
}

// "=start[:increment]" right behind SEQUENCE, up to a blank or the next "/".
void read_sequence_value(const std::string& text, size_t& pos, Qualifiers& q) {
    if (pos == text.size() || text[pos] != '=') return;
    const size_t first = ++pos;
    while (pos < text.size() && !kpe_is_space(text[pos]) && text[pos] != '/') ++pos;
    const std::string value = text.substr(first, pos - first);
    const size_t colon = value.find(':');
    const auto start = kpe_stoi(value.substr(0, colon));
    if (!start) return;
    q.seq_start = *start;
    if (colon == std::string::npos) return;
    if (const auto step = kpe_stoi(value.substr(colon + 1))) q.seq_incr = *step;
}

struct QualifierRow {
    std::string_view name;
    bool Qualifiers::*flag;
    void (*read_value)(const std::string& text, size_t& pos, Qualifiers& q) = nullptr;
};
constexpr QualifierRow QUALIFIERS[] = {
    {"QUERY", &Qualifiers::query},
    {"NOTYPE", &Qualifiers::notype},
    {"BRIEF", &Qualifiers::brief, read_brief_value},
    {"SAVE", &Qualifiers::save},
    {"GLOBAL", &Qualifiers::global},
    {"G", &Qualifiers::global},
    {"STAY", &Qualifiers::stay},
    {"DUPLICATE", &Qualifiers::duplicate},
    {"SEQUENCE", &Qualifiers::sequence, read_sequence_value},
};

size_t letters_at(const std::string& text, size_t pos) {
    const size_t first = pos;
    while (pos < text.size() && kpe_is_alpha(text[pos])) ++pos;
    return pos - first;
}

}  // namespace

Editor::Qualifiers Editor::extract_qualifiers(std::string& text) {
    Qualifiers q;
    std::string rest;
    size_t pos = 0;
    while (pos < text.size()) {
        const size_t length = text[pos] == '/' ? letters_at(text, pos + 1) : 0;
        const QualifierRow* found = nullptr;
        if (length > 0) {
            const std::string name = upper(text.substr(pos + 1, length));
            found = std::find_if(std::begin(QUALIFIERS), std::end(QUALIFIERS),
                                 [&](const QualifierRow& row) { return row.name == name; });
            if (found == std::end(QUALIFIERS)) found = nullptr;
        }
        if (!found) {
            rest += text[pos++];
            continue;
        }
        pos += 1 + length;
        q.*(found->flag) = true;
        if (found->read_value) found->read_value(text, pos, q);
    }
    text = trim(rest);
    return q;
}

size_t Editor::substitute_tail_pos(const std::string& text) {
    const size_t verb = letters_at(text, 0);
    if (verb == 0 || verb == text.size()) return std::string::npos;
    if (!is_abbrev(upper(text.substr(0, verb)), "SUBSTITUTE", 1)) return std::string::npos;
    const char delimiter = text[verb];
    if (kpe_is_digit(delimiter) || kpe_is_space(delimiter) || delimiter == '_' || delimiter == '%') {
        return std::string::npos;
    }
    const size_t second = text.find(delimiter, verb + 1);
    if (second == std::string::npos) return std::string::npos;
    const size_t third = text.find(delimiter, second + 1);
    return third == std::string::npos ? std::string::npos : third + 1;
}
