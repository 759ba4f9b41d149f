#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// Makes keys of the bytes that a terminal sends. It knows nothing of the terminal but its entry, and nothing of time:
// the caller says when bytes have stayed away for long enough.

// What the terminal's entry says of sequences. The functions are those of curses and of n3_kpe_keymap.h; a test has
// others.
struct KeyEntry {
    // The code of the key that sends these bytes; 0: there is none, ERR: they begin longer ones.
    int (*defined)(const char* bytes);
    size_t (*length_of)(int code, const std::string& bytes);
    int (*code_of)(const std::string& bytes);
};

// What the terminal has answered when it was asked about itself.
struct TerminalAnswers {
    bool attributes = false;      // its device attributes: the answer that every terminal gives, and the last one
    bool protocol = false;        // it can report each key by a sequence of its own, as kitty does
    bool joins_clusters = false;  // mode 2027 is set: it shows a cluster in the cells of one character

    bool operator==(const TerminalAnswers&) const = default;
};

class KeyDecoder {
public:
    explicit KeyDecoder(const KeyEntry& entry) : entry_(entry) {}
    // Whether bytes over 127 are UTF-8. Otherwise each of them is a key by itself.
    void set_utf8(bool utf8) { utf8_ = utf8; }

    void add(char byte) { bytes_ += byte; }
    // Whether bytes wait for others.
    bool begun() const { return !bytes_.empty(); }
    // How long they may wait. While the terminal owes an answer, the beginning of one waits longer.
    std::chrono::milliseconds patience(bool owes_answer) const;
    // The next key, not normalised; nothing when there is none, or while it may become a longer one, unless no more
    // bytes come. KPE_PASTE says that what follows is pasted text.
    std::optional<int> key(bool no_more);
    // The bytes that wait. They are the caller's from now on.
    std::string take_bytes();
    // Whether bytes that are no character were dropped, since take_broken() was called last.
    bool broken() const { return broken_; }
    bool take_broken();
    // Takes an answer that was found elsewhere, as kpe_answer_size finds it.
    void take_answer(std::string_view sequence) { understand(sequence, /*alt=*/false); }
    // All that was answered up to now.
    const TerminalAnswers& answers() const { return answers_; }

private:
    struct Report;

    unsigned char byte(size_t at) const { return static_cast<unsigned char>(bytes_[at]); }
    bool decode(bool no_more);
    bool skip_overlong(bool no_more);
    bool decode_character(bool no_more);
    bool decode_by_entry(bool no_more);
    bool decode_escape(bool no_more);
    bool decode_sequence(size_t start, bool no_more);
    void take(size_t size) { bytes_.erase(0, size); }
    void take_key(size_t size, int key);
    void take_byte() { take_key(1, byte(0)); }
    void drop_broken(size_t size);

    void understand(std::string_view sequence, bool alt);
    std::optional<int> find_key(std::string_view sequence);
    std::optional<int> code_by_entry(std::string_view sequence) const;
    int keypad_key(char final) const;
    void answered(std::string_view parameters, char final);
    void report_key(const Report& report);
    void report_text(const Report& report);
    void type_code(int code, bool alt);

    KeyEntry entry_;
    bool utf8_ = false, overlong_ = false;
    std::string bytes_;
    std::vector<int> ready_;
    size_t next_ = 0;
    bool broken_ = false;
    TerminalAnswers answers_;
};

// The text of a bracketed paste, which comes in pieces.
class PasteText {
public:
    // Takes the bytes up to the end of the paste. Returns how many they are, the sequence that ends it included.
    size_t add(std::string_view bytes);
    bool ended() const { return ended_; }
    // Whether there was not enough memory. The text is lost then, but not what follows it.
    bool lost() const { return lost_; }
    // The text up to now, with each CR and CR LF as "\n". Call it once.
    std::string take();

private:
    void append(std::string_view bytes);

    std::string text_;
    size_t matched_ = 0;  // bytes of the sequence that ends a paste
    bool ended_ = false, lost_ = false;
};
