#include <algorithm>
#include <iterator>
#include <new>
#include <set>
#include <sys/stat.h>

#include "editor/kpe.h"
#include "editor/line_reader.h"
#include "files/file_place.h"
#include "system/ascii.h"

namespace {

// What stands behind the beginning of a command.
enum class Names { Files, Buffers, Macros, Verbs };
struct Place {
    std::string_view behind;  // upper case; what follows is the name
    Names names;
    bool one_word;  // a blank ends the name
};
// The first row that fits wins.
constexpr Place PLACES[] = {
    {"INCLUDE ", Names::Files, false},      {"WRITE ", Names::Files, true},   {"SET COMMAND ", Names::Files, false},
    {"SET HELP ", Names::Files, false},     {"CLEAR ", Names::Buffers, true}, {"SHOW MACRO ", Names::Macros, true},
    {"DEFINE MACRO ", Names::Macros, true}, {"HELP ", Names::Verbs, false},
};
// These end what is in front of a buffer's name, anywhere in a command.
constexpr std::string_view IN_FRONT_OF_BUFFERS[] = {" TO ", " BUFFER "};

std::string upper_case(std::string_view text) {
    std::string upper(text);
    std::transform(upper.begin(), upper.end(), upper.begin(), kpe_to_upper);
    return upper;
}

// In the case in which typed was begun.
std::string in_case_of(std::string_view typed, std::string word) {
    const bool lower = std::any_of(typed.begin(), typed.end(), [](char c) { return kpe_to_upper(c) != c; });
    if (lower) std::transform(word.begin(), word.end(), word.begin(), kpe_to_lower);
    return word;
}

// The next words of the phrases that begin with text (upper case), and where the word begins that they stand for.
Completion next_words(std::string_view text, const std::vector<std::string>& phrases) {
    const size_t from = text.rfind(' ') == text.npos ? 0 : text.rfind(' ') + 1;
    std::set<std::string> words;
    for (const std::string& phrase : phrases) {
        if (!phrase.starts_with(text)) continue;
        const size_t end = std::min(phrase.find(' ', from), phrase.size());
        if (end > from) words.insert(phrase.substr(from, end - from));
    }
    return {from, {words.begin(), words.end()}};
}

// A line break in a name would end the command, and a blank would end the name that has to be one word.
bool can_be_typed(std::string_view name, bool one_word) {
    const char first = one_word ? '!' : ' ';
    return std::none_of(name.begin(), name.end(), [=](char c) { return (c >= 0 && c < first) || c == 127; });
}

std::vector<std::string> files_like(const std::string& start, bool one_word) {
    const size_t name_at = start.rfind('/') == start.npos ? 0 : start.rfind('/') + 1;
    const std::string directory = start.substr(0, name_at), name = start.substr(name_at);
    std::vector<std::string> files;
    kpe_each_entry(directory.empty() ? "." : directory, [&](int fd, const char* entry) {
        const std::string found = entry;
        if (!found.starts_with(name) || (name.empty() && found.starts_with('.')) || found == "." || found == "..")
            return;
        if (!can_be_typed(found, one_word)) return;
        struct stat st;
        const bool is_directory = fstatat(fd, entry, &st, 0) == 0 && S_ISDIR(st.st_mode);
        files.push_back(directory + found + (is_directory ? "/" : ""));
    });
    std::sort(files.begin(), files.end());
    return files;
}

}  // namespace

std::optional<std::string> Editor::read_command() {
    record_changes();
    LineRequest request = {.kind = LineRequest::Kind::Command, .history = history_ ? &line_history_ : nullptr};
    request.completer = [this](std::string_view before) { return completion(before); };
    return kpe_read_typed(policy_.shows_prompts ? prompt_ : "", request);
}

void Editor::keep_history() try {
    if (history_) line_history_.save();
} catch (const std::bad_alloc&) {  // that is no reason not to end
}

std::optional<Completion> Editor::completion(std::string_view before) {
    const size_t start = std::min(before.find_first_not_of(' '), before.size());
    const std::string command = upper_case(before.substr(start));
    const auto names = [&](const auto& map, std::string_view typed, std::string_view sign) {
        Completion found{before.size() - typed.size(), {}};
        for (const auto& [name, value] : map) {
            if (!name.starts_with(upper_case(typed.substr(sign.size())))) continue;
            found.words.push_back(std::string(sign) + in_case_of(typed, name));
        }
        return found;
    };
    const size_t blank = before.rfind(' ');
    const std::string_view word = before.substr(blank == before.npos ? 0 : blank + 1);
    if (word.starts_with('=')) return names(buffers_, word, "=");
    for (const std::string_view in_front : IN_FRONT_OF_BUFFERS) {
        const bool behind = std::string_view(command).substr(0, command.size() - word.size()).ends_with(in_front);
        if (behind) return names(buffers_, word, "");
    }
    std::vector<std::string> phrases = command_phrases();
    for (const Place& place : PLACES) {
        if (!command.starts_with(place.behind)) continue;
        const std::string_view typed = before.substr(start + place.behind.size());
        if (place.one_word && typed.find(' ') != typed.npos) return std::nullopt;
        if (place.names == Names::Buffers) return names(buffers_, typed, "");
        if (place.names == Names::Macros) return names(macro_names_, typed, "");
        if (place.names == Names::Files)
            return Completion{before.size() - typed.size(), files_like(std::string(typed), place.one_word)};
        Completion found = next_words(upper_case(typed), phrases);
        found.from += before.size() - typed.size();
        for (std::string& verb : found.words) verb = in_case_of(typed, verb);
        return found;
    }
    for (std::string& phrase : setting_phrases()) phrases.push_back(std::move(phrase));
    for (const auto& [name, defined] : macro_names_) phrases.push_back(name);
    Completion found = next_words(command, phrases);
    found.from += start;
    for (std::string& phrase : found.words) phrase = in_case_of(word, phrase);
    const bool only_letters = std::all_of(command.begin(), command.end(), kpe_is_alpha);
    return found.words.empty() && !only_letters ? std::nullopt : std::optional(found);
}
