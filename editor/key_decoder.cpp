#include "editor/key_decoder.h"

#include <algorithm>
#include <cstring>
#include <curses.h>
#include <iterator>
#include <new>
#include <utility>

#include "buffer/characters.h"
#include "editor/key_codes.h"
#include "system/ascii.h"

namespace {

using namespace std::chrono_literals;

constexpr std::string_view PASTE_BEGINS = "\033[200~", PASTE_ENDS = "\033[201~";

// No key and no answer has a longer sequence.
constexpr size_t LONGEST_SEQUENCE = 4096;

// The largest code that may come from the terminal's entry: above it curses numbers keys that have no common name.
constexpr int LAST_ENTRY_CODE = KPE_KP_ENTER;

// --- What terminals send for keys ---

// clang-format off

struct FinalRow { char final; int key; };
struct NumberRow { int number; int key; };

// CSI letter. Those from N on are of terminals after SCO, as far as no other terminal uses them.
constexpr FinalRow CSI_KEYS[] = {
    {'A', KEY_UP},   {'B', KEY_DOWN},  {'C', KEY_RIGHT}, {'D', KEY_LEFT},
    {'E', KPE_KP5},  {'F', KEY_END},   {'H', KEY_HOME},  {'Z', KEY_BTAB},
    {'P', KEY_F(1)}, {'Q', KEY_F(2)},  {'R', KEY_F(3)},  {'S', KEY_F(4)},
    {'a', KPE_SHIFT + KEY_UP},    {'b', KPE_SHIFT + KEY_DOWN},
    {'c', KPE_SHIFT + KEY_RIGHT}, {'d', KPE_SHIFT + KEY_LEFT},
    {'N', KEY_F(2)},  {'T', KEY_F(8)},  {'U', KEY_F(9)}, {'V', KEY_F(10)}, {'W', KEY_F(11)}, {'X', KEY_F(12)},
    {'G', KEY_NPAGE}, {'L', KEY_IC},
};

// SS3 letter, but for the keypad.
constexpr FinalRow SS3_KEYS[] = {
    {'A', KEY_UP},   {'B', KEY_DOWN}, {'C', KEY_RIGHT}, {'D', KEY_LEFT},
    {'E', KPE_KP5},  {'F', KEY_END},  {'H', KEY_HOME},
    {'P', KEY_F(1)}, {'Q', KEY_F(2)}, {'R', KEY_F(3)},  {'S', KEY_F(4)},
    {'a', KPE_CTRL + KEY_UP},    {'b', KPE_CTRL + KEY_DOWN},
    {'c', KPE_CTRL + KEY_RIGHT}, {'d', KPE_CTRL + KEY_LEFT},
};

// SS3 letter: the keypad.
constexpr FinalRow KEYPAD_KEYS[] = {
    {'p', KPE_KP0}, {'q', KPE_KP1}, {'r', KPE_KP2}, {'s', KPE_KP3}, {'t', KPE_KP4},
    {'u', KPE_KP5}, {'v', KPE_KP6}, {'w', KPE_KP7}, {'x', KPE_KP8}, {'y', KPE_KP9},
    {'m', KPE_KP_MINUS}, {'l', KPE_KP_COMMA}, {'k', KPE_KP_COMMA}, {'n', KPE_KP_PERIOD}, {'M', KPE_KP_ENTER},
    {'o', KEY_F(2)}, {'j', KEY_F(3)}, {'X', '='}, {'I', KPE_TAB}, {' ', ' '},
};

// CSI [ letter, of the Linux console.
constexpr FinalRow CONSOLE_KEYS[] = {
    {'A', KEY_F(1)}, {'B', KEY_F(2)}, {'C', KEY_F(3)}, {'D', KEY_F(4)}, {'E', KEY_F(5)},
};

// CSI number ~
constexpr NumberRow NUMBERED_KEYS[] = {
    {1, KEY_HOME}, {2, KEY_IC}, {3, KEY_DC}, {4, KEY_END}, {5, KEY_PPAGE}, {6, KEY_NPAGE}, {7, KEY_HOME}, {8, KEY_END},
    {11, KEY_F(1)},  {12, KEY_F(2)},  {13, KEY_F(3)},  {14, KEY_F(4)},  {15, KEY_F(5)},
    {17, KEY_F(6)},  {18, KEY_F(7)},  {19, KEY_F(8)},  {20, KEY_F(9)},  {21, KEY_F(10)},
    {23, KEY_F(11)}, {24, KEY_F(12)}, {25, KEY_F(13)}, {26, KEY_F(14)}, {28, KEY_F(15)},
    {29, KEY_F(16)}, {31, KEY_F(17)}, {32, KEY_F(18)}, {33, KEY_F(19)}, {34, KEY_F(20)},
};

// Instead of the ~, of rxvt.
constexpr FinalRow NUMBERED_MODIFIERS[] = {{'~', 0}, {'$', KPE_SHIFT}, {'^', KPE_CTRL}, {'@', KPE_CTRL + KPE_SHIFT}};

// A modifier in a sequence is one more than the sum of these. The lock keys count with 64 and 128; they do not matter.
constexpr int SHIFT = 1, ALT = 2, CTRL = 4, META_OR_SUPER = 8, HYPER = 16, META = 32, LOCKS = 64 + 128;
constexpr NumberRow MODIFIERS[] = {
    {SHIFT, KPE_SHIFT}, {ALT, KPE_ALT}, {CTRL, KPE_CTRL}, {META_OR_SUPER, KPE_ALT}, {META, KPE_ALT},
};

// The numbers of kitty's protocol for keys that are no characters, which lie in a private range of Unicode.
constexpr int PRIVATE_FIRST = 57344, PRIVATE_LAST = 63743;
constexpr int PROTOCOL_NUM_LOCK = 57360;
constexpr int PROTOCOL_F1 = 57364, PROTOCOL_F20 = 57383;
// From this number on the keypad: what it sends by SS3, first with Num Lock on, then the same keys with Num Lock off.
constexpr int PROTOCOL_KEYPAD = 57399;
constexpr std::string_view PROTOCOL_FINALS = "pqrstuvwxy" "nojmkMXl" "tvxrys" "wqpnu";

// What Ctrl makes of a character that is no letter.
struct ControlRow { std::string_view characters; int byte; };
constexpr ControlRow CONTROLS[] = {
    {" @2", 0}, {"[3", 27}, {"\\4", 28}, {"]5", 29}, {"^6~", 30}, {"_/7", 31}, {"?8", 127},
};
// clang-format on

template <size_t N>
std::optional<int> find(const FinalRow (&rows)[N], char final) {
    const auto row =
        std::find_if(std::begin(rows), std::end(rows), [=](const FinalRow& r) { return r.final == final; });
    return row == std::end(rows) ? std::nullopt : std::optional(row->key);
}

template <size_t N>
std::optional<int> find(const NumberRow (&rows)[N], int number) {
    const auto row =
        std::find_if(std::begin(rows), std::end(rows), [=](const NumberRow& r) { return r.number == number; });
    return row == std::end(rows) ? std::nullopt : std::optional(row->key);
}

// --- The parts of a sequence ---

// The part of text with this index; parts are separated by c. "" where there are fewer.
std::string_view part(std::string_view text, char c, size_t index) {
    for (; index > 0; --index) {
        const size_t end = text.find(c);
        if (end == text.npos) return {};
        text.remove_prefix(end + 1);
    }
    return text.substr(0, text.find(c));
}

size_t count_parts(std::string_view text, char c) {
    if (text.empty()) return 0;
    return 1 + static_cast<size_t>(std::count(text.begin(), text.end(), c));
}

// The number that text begins with; 0 for none, and for one that is larger than any that means something.
int number_of(std::string_view text) {
    constexpr int LARGEST = 0x10ffff;
    int number = 0;
    for (const char c : text) {
        if (c < '0' || c > '9') break;
        number = number * 10 + (c - '0');
        if (number > LARGEST) return 0;
    }
    return number;
}

// The sum that stands for the keys held down, in a field such as "5" or "5:1".
int held_in(std::string_view field) { return std::max(number_of(part(field, ':', 0)) - 1, 0) & ~LOCKS; }

bool is_release(std::string_view field) { return number_of(part(field, ':', 1)) == 3; }

int modifiers_of(int held) {
    int modifiers = 0;
    for (const NumberRow& row : MODIFIERS) {
        if (held & row.number) modifiers |= row.key;
    }
    return modifiers;
}

// A byte stays what it is whatever is held: Shift/Return is Return.
int with_modifiers(int key, int modifiers) { return key < 256 ? key : key | modifiers; }

bool is_text(int code) {
    const bool control = code < ' ' || (code >= 0x7f && code < 0xa0);
    const bool surrogate = code >= 0xd800 && code < 0xe000;
    return !control && !surrogate;
}

bool is_printable_ascii(int code) { return code >= ' ' && code <= '~'; }

std::optional<int> control_byte(int code) {
    if (!is_printable_ascii(code)) return std::nullopt;
    const char c = kpe_to_upper(static_cast<char>(code));
    if (c >= 'A' && c <= 'Z') return kpe_ctrl(c);
    for (const ControlRow& row : CONTROLS) {
        if (row.characters.find(c) != row.characters.npos) return row.byte;
    }
    return std::nullopt;
}

// How many bytes a character of UTF-8 has that begins with lead; 0 if none does.
size_t utf8_size_by_lead(unsigned char lead) {
    if (lead < 0xc2 || lead > 0xf4) return 0;
    return lead < 0xe0 ? 2 : lead < 0xf0 ? 3 : 4;
}

}  // namespace

// A key that a sequence tells by its number: in kitty's protocol, and in xterm's form for all other keys.
struct KeyDecoder::Report {
    int code, shifted;      // the character of the key by itself, and with Shift (0: not told); or a private number
    int latin;              // what the key types where the letters are Latin; 0: not told
    int held;               // the sum that stands for the modifiers
    std::string_view text;  // what the key types, as code points with colons between; "": not told
};

// --- Bytes ---

std::chrono::milliseconds KeyDecoder::patience(bool owes_answer) const {
    if (!bytes_.empty() && byte(0) >= 0x80) return 50ms;
    if (bytes_.starts_with("\033[?")) return 1000ms;  // no key begins so
    return owes_answer ? 100ms : 25ms;
}

std::optional<int> KeyDecoder::key(bool no_more) {
    while (next_ == ready_.size()) {
        ready_.clear();
        next_ = 0;
        if (bytes_.empty() || !decode(no_more)) return std::nullopt;
    }
    return ready_[next_++];
}

std::string KeyDecoder::take_bytes() {
    std::string taken;
    taken.swap(bytes_);
    return taken;
}

bool KeyDecoder::take_broken() {
    const bool broken = broken_;
    broken_ = false;
    return broken;
}

void KeyDecoder::take_key(size_t size, int key) {
    take(size);
    ready_.push_back(key);
}

void KeyDecoder::drop_broken(size_t size) {
    take(size);
    broken_ = true;
}

// Takes something off the bytes. false: it has to wait for more.
bool KeyDecoder::decode(bool no_more) {
    if (overlong_) return skip_overlong(no_more);
    if (byte(0) == KPE_ESCAPE) return decode_escape(no_more);
    if (utf8_ && byte(0) >= 0x80 && entry_.defined(bytes_.substr(0, 1).c_str()) == 0) return decode_character(no_more);
    return decode_by_entry(no_more);
}

// Up to the final byte.
bool KeyDecoder::skip_overlong(bool no_more) {
    const bool inside = byte(0) >= ' ' && byte(0) < '@';
    if (!inside) overlong_ = false;
    if (inside || is_printable_ascii(byte(0))) take(1);
    if (no_more) overlong_ = false;
    return true;
}

bool KeyDecoder::decode_character(bool no_more) {
    const size_t size = utf8_size_by_lead(byte(0));
    size_t there = 1;
    while (there < std::min(size, bytes_.size()) && kpe_is_continuation(bytes_[there])) ++there;
    if (there < size && there == bytes_.size()) {
        if (no_more) drop_broken(there);
        return no_more;
    }
    if (size == 0 || kpe_utf8_size(bytes_) != size)
        drop_broken(1);
    else
        take_key(size, KPE_CHARACTER + static_cast<int>(kpe_utf8_character(bytes_.substr(0, size)).code));
    return true;
}

bool KeyDecoder::decode_by_entry(bool no_more) {
    const size_t end = std::min(bytes_.find('\0'), bytes_.size());  // a NUL ends what curses looks at
    for (size_t size = 1; size <= end; ++size) {
        const std::string start = bytes_.substr(0, size);
        const int code = entry_.defined(start.c_str());
        if (code == ERR) continue;  // it begins longer sequences
        if (code == OK)
            take_byte();
        else
            take_key(entry_.length_of(code, start), code);
        return true;
    }
    if (end == bytes_.size() && !no_more) return false;
    for (size_t size = end; size > 0; --size) {
        const int code = entry_.code_of(bytes_.substr(0, size));
        if (code == 0) continue;
        take_key(size, code);
        return true;
    }
    take_byte();
    return true;
}

namespace {

bool introduces(unsigned char byte) { return byte == '[' || byte == 'O'; }

}  // namespace

bool KeyDecoder::decode_escape(bool no_more) {
    if (bytes_.size() == 1) return decode_by_entry(no_more);
    const unsigned char second = byte(1);
    if (introduces(second)) return decode_sequence(0, no_more);
    if (second == KPE_ESCAPE) {
        if (bytes_.size() == 2 && !no_more) return false;
        if (bytes_.size() > 2 && introduces(byte(2))) return decode_sequence(1, no_more);
        take_byte();
        return true;
    }
    if (second >= 0x80) {
        take_byte();
        return true;
    }
    if (!is_printable_ascii(second) || entry_.defined(bytes_.substr(0, 2).c_str()) != 0)
        return decode_by_entry(no_more);
    take_key(2, KPE_ALT + second);
    return true;
}

// The sequence begins at start: behind another Escape, which is Alt, at 1.
bool KeyDecoder::decode_sequence(size_t start, bool no_more) {
    const bool control = byte(start + 1) == '[';
    const size_t inside = start + 2;
    size_t end = inside;
    const auto goes_on = [&] {
        const char c = bytes_[end];
        if (!control) return (c >= '0' && c <= '9') || c == ';' || c == ':';
        if (c == '[') return end == inside;
        const std::string_view before = std::string_view(bytes_).substr(inside, end - inside);
        const bool rxvt = c == '$' && !before.empty() && before.find_first_not_of("0123456789") == before.npos;
        return c >= ' ' && c < '@' && !rxvt;
    };
    while (end < bytes_.size() && goes_on()) ++end;
    if (end > LONGEST_SEQUENCE) {
        take(end);
        overlong_ = true;
        return true;
    }
    const bool cut_off = end == bytes_.size();
    if (cut_off && !no_more) return false;
    if (!cut_off && is_printable_ascii(byte(end))) {
        const std::string sequence = bytes_.substr(start, end + 1 - start);
        take(end + 1);
        understand(sequence, start > 0);
    } else if (end > inside) {
        take(end);
    } else if (start > 0) {
        take_byte();
    } else {
        take_key(2, KPE_ALT + byte(1));
    }
    return true;
}

// --- Sequences ---

void KeyDecoder::understand(std::string_view sequence, bool alt) {
    if (sequence == PASTE_BEGINS) {
        if (alt) ready_.push_back(KPE_ESCAPE);
        ready_.push_back(KPE_PASTE);
        return;
    }
    const bool control = sequence[1] == '[';
    const char final = sequence.back();
    const std::string_view parameters = sequence.substr(2, sequence.size() - 3);
    if (control && parameters.starts_with('?')) return answered(parameters.substr(1), final);
    const std::string_view second = part(parameters, ';', 1);
    if (is_release(second)) return;
    if (control && final == 'u') {
        const std::string_view codes = part(parameters, ';', 0);
        return report_key({.code = number_of(part(codes, ':', 0)),
                           .shifted = number_of(part(codes, ':', 1)),
                           .latin = number_of(part(codes, ':', 2)),
                           .held = held_in(second) | (alt ? ALT : 0),
                           .text = part(parameters, ';', 2)});
    }
    if (control && final == '~' && number_of(parameters) == 27) {
        return report_key({.code = number_of(part(parameters, ';', 2)),
                           .shifted = 0,
                           .latin = 0,
                           .held = held_in(second) | (alt ? ALT : 0),
                           .text = {}});
    }
    if (const auto key = find_key(sequence)) ready_.push_back(with_modifiers(*key, alt ? KPE_ALT : 0));
}

namespace {

// The key of a sequence by the tables, and what was held down with it.
struct Found {
    std::optional<int> key;
    int modifiers = 0;
};

// A letter stands behind nothing, behind the modifiers, or behind "1;" and the modifiers.
Found found_by_letter(std::optional<int> key, std::string_view parameters) {
    const size_t count = count_parts(parameters, ';');
    if (count > 2 || (count == 2 && number_of(parameters) > 1)) return {};
    return {key, modifiers_of(held_in(part(parameters, ';', count == 2 ? 1 : 0)))};
}

Found found_by_number(std::string_view parameters, char final) {
    const auto modifiers = find(NUMBERED_MODIFIERS, final);
    if (!modifiers || count_parts(parameters, ';') > 2) return {};
    return {find(NUMBERED_KEYS, number_of(parameters)), *modifiers | modifiers_of(held_in(part(parameters, ';', 1)))};
}

}  // namespace

// Of two keys with the same sequence the entry says which one the terminal has. But what it calls a key that is held
// down with another one differs: often Shift/F1 is F13.
std::optional<int> KeyDecoder::find_key(std::string_view sequence) {
    const bool control = sequence[1] == '[';
    const char final = sequence.back();
    const std::string_view parameters = sequence.substr(2, sequence.size() - 3);
    Found found;
    if (control && parameters == "[") {
        found = {find(CONSOLE_KEYS, final)};
    } else if (control && find(NUMBERED_MODIFIERS, final)) {
        found = found_by_number(parameters, final);
    } else if (control) {
        found = found_by_letter(find(CSI_KEYS, final), parameters);
        if (!found.key && !parameters.empty()) found = found_by_letter(find(KEYPAD_KEYS, final), parameters);
    } else if (final == '~') {  // the terminals that send this have only one such key
        if (number_of(parameters) == 3) found = {KPE_KP_PERIOD, modifiers_of(held_in(part(parameters, ';', 1)))};
    } else {
        found = found_by_letter(find(SS3_KEYS, final), parameters);
        if (!found.key && find(KEYPAD_KEYS, final)) found = found_by_letter(keypad_key(final), parameters);
    }
    if (found.key) *found.key = with_modifiers(*found.key, found.modifiers);
    const bool certain = found.key && (*found.key >= KPE_SHIFT || *found.key == KPE_KP5);
    if (certain) return found.key;
    const auto code = code_by_entry(sequence);
    return code ? code : found.key;
}

std::optional<int> KeyDecoder::code_by_entry(std::string_view sequence) const {
    const std::string bytes(sequence);
    int code = entry_.defined(bytes.c_str());
    if (code == OK) return std::nullopt;
    if (code == ERR)
        code = entry_.code_of(bytes);
    else if (entry_.length_of(code, bytes) != bytes.size())
        return std::nullopt;
    return code > 0 && code <= LAST_ENTRY_CODE ? std::optional(code) : std::nullopt;
}

// What the keypad's key does that sends SS3 and this letter: curses was told, since it depends on the keyboard.
int KeyDecoder::keypad_key(char final) const {
    const auto code = code_by_entry(std::string("\033O") + final);
    return code ? *code : find(KEYPAD_KEYS, final).value_or(0);
}

void KeyDecoder::answered(std::string_view parameters, char final) {
    constexpr int JOINED_CLUSTERS = 2027, SET = 1, ALWAYS_SET = 3;
    if (final == 'c') answers_.attributes = true;
    if (final == 'u' && !answers_.attributes) answers_.protocol = true;
    if (final == 'y' && number_of(parameters) == JOINED_CLUSTERS) {
        const int state = number_of(part(parameters, ';', 1));
        answers_.joins_clusters = state == SET || state == ALWAYS_SET;
    }
}

void KeyDecoder::report_key(const Report& report) {
    const int code = report.code, modifiers = modifiers_of(report.held);
    const int in_keypad = code - PROTOCOL_KEYPAD;
    if (code < PRIVATE_FIRST || code > PRIVATE_LAST) {
        report_text(report);
    } else if (code == PROTOCOL_NUM_LOCK) {
        ready_.push_back(KPE_NUM_LOCK);
    } else if (code >= PROTOCOL_F1 && code <= PROTOCOL_F20) {
        ready_.push_back(KEY_F(code - PROTOCOL_F1 + 1) | modifiers);
    } else if (in_keypad >= 0 && in_keypad < static_cast<int>(PROTOCOL_FINALS.size())) {
        const char final = PROTOCOL_FINALS[static_cast<size_t>(in_keypad)];
        ready_.push_back(with_modifiers(keypad_key(final), modifiers));
    }
}

// A key that types something, or does in other terminals: as these send it.
void KeyDecoder::report_text(const Report& report) {
    if (report.held & (META_OR_SUPER | HYPER)) return;
    const bool shift = report.held & SHIFT, ctrl = report.held & CTRL, alt = report.held & (ALT | META);
    // With Ctrl or Alt a key of another script is the Latin letter beside it: how else would one type Ctrl/C?
    const bool latin = (ctrl || alt) && report.text.empty() && report.code > '~' && report.latin != 0;
    int code = latin ? report.latin : report.code;
    if (code == KPE_RETURN || code == KPE_ESCAPE || code == KPE_DELETE || code == KPE_BACKSPACE || code == KPE_TAB) {
        ready_.push_back(code == KPE_TAB && shift ? KEY_BTAB : code);
        return;
    }
    if (const auto byte = ctrl ? control_byte(code) : std::nullopt) {
        ready_.push_back(*byte);
        return;
    }
    if (ctrl && report.text.empty() && code > '~') return;  // no text
    if (shift && report.shifted != 0 && !latin)
        code = report.shifted;
    else if (shift && is_printable_ascii(code))
        code = static_cast<unsigned char>(kpe_to_upper(static_cast<char>(code)));
    if (report.text.empty()) type_code(code, alt);
    for (std::string_view left = report.text; !left.empty();) {
        type_code(number_of(left), alt);
        left.remove_prefix(std::min(left.find(':'), left.size() - 1) + 1);
    }
}

void KeyDecoder::type_code(int code, bool alt) {
    if (is_printable_ascii(code))
        ready_.push_back(alt ? KPE_ALT + code : code);
    else if (utf8_ && is_text(code))
        ready_.push_back(KPE_CHARACTER + code);
}

// --- Pastes ---

void PasteText::append(std::string_view bytes) {
    if (lost_) return;
    try {
        text_ += bytes;
    } catch (const std::bad_alloc&) {
        lost_ = true;
        std::string().swap(text_);
    }
}

size_t PasteText::add(std::string_view bytes) {
    size_t at = 0;
    while (at < bytes.size() && !ended_) {
        if (matched_ == 0) {
            const size_t escape = std::min(bytes.find(PASTE_ENDS[0], at), bytes.size());
            append(bytes.substr(at, escape - at));
            at = escape;
            if (at == bytes.size()) break;
        }
        if (bytes[at] == PASTE_ENDS[matched_]) {
            ++at;
            ended_ = ++matched_ == PASTE_ENDS.size();
        } else {
            append(PASTE_ENDS.substr(0, matched_));
            matched_ = 0;
        }
    }
    return at;
}

std::string PasteText::take() {
    if (!ended_) append(PASTE_ENDS.substr(0, matched_));
    size_t to = 0;
    for (size_t from = 0; from < text_.size();) {
        const size_t end = std::min(text_.find('\r', from), text_.size());
        std::memmove(text_.data() + to, text_.data() + from, end - from);
        to += end - from;
        from = end;
        if (from == text_.size()) break;
        from += text_.compare(from, 2, "\r\n") == 0 ? 2 : 1;
        text_[to++] = '\n';
    }
    text_.resize(to);
    return std::move(text_);
}
