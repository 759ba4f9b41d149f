#include "system/report.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <poll.h>
#include <unistd.h>

#include "system/ascii.h"

namespace {

// What was printed and not handed over yet.
constexpr size_t OUTPUT_SIZE = 256 * 1024;
char g_output[OUTPUT_SIZE];
size_t g_output_used = 0;
char g_last_printed = '\n';
bool g_warned = false;
size_t g_complaints = 0;

// All bytes, or as many as the reader takes: a reader that has gone is no reason to stop editing.
void write_all(int fd, const char* data, size_t size) {
    while (size > 0) {
        const ssize_t n = write(fd, data, size);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0 && errno == EAGAIN) {
            pollfd reader = {fd, POLLOUT, 0};  // somebody else made the descriptor non-blocking
            poll(&reader, 1, -1);
            continue;
        }
        if (n <= 0) return;
        data += n;
        size -= static_cast<size_t>(n);
    }
}

// Whether a terminal would obey the byte. A tab does no harm.
bool is_control(unsigned char byte) { return (byte < ' ' && byte != '\t') || byte == 0x7f; }

// Where the second byte of a character is bound to less than 0x80 to 0xbf: what is outside is spelled too long, no
// character, or a control character.
struct SecondByte {
    unsigned char lead, first, last;
};
constexpr SecondByte SECOND_BYTES[] = {
    {0xc2, 0xa0, 0xbf}, {0xe0, 0xa0, 0xbf}, {0xed, 0x80, 0x9f}, {0xf0, 0x90, 0xbf}, {0xf4, 0x80, 0x8f},
};

// How many bytes the UTF-8 character has that text, not empty, begins with; 0 where that is none, or not whole.
size_t character_size(std::string_view text) {
    const auto byte = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char lead = byte(0);
    if (lead < 0x80) return 1;
    if (lead < 0xc2 || lead > 0xf4) return 0;
    const size_t size = lead < 0xe0 ? 2 : lead < 0xf0 ? 3 : 4;
    if (text.size() < size) return 0;
    for (size_t i = 1; i < size; ++i)
        if (!kpe_is_continuation(text[i])) return 0;
    const auto bound = std::find_if(std::begin(SECOND_BYTES), std::end(SECOND_BYTES),
                                    [&](const SecondByte& row) { return row.lead == lead; });
    const bool outside = bound != std::end(SECOND_BYTES) && (byte(1) < bound->first || byte(1) > bound->last);
    return outside ? 0 : size;
}

// text as it is shown on a terminal: control bytes as ^X; those of eight bits as "?", unless they are the inside of a
// character: terminals take the bytes of what is none one by one, and may obey them.
std::string harmless(std::string_view text) {
    std::string shown;
    while (!text.empty()) {
        const auto byte = static_cast<unsigned char>(text.front());
        const size_t size = character_size(text);
        if (is_control(byte)) {
            shown += '^';
            shown += static_cast<char>(byte ^ 0x40);
        } else if (size == 0 && byte < 0xa0) {
            shown += '?';
        } else {
            shown += text.substr(0, std::max(size, size_t{1}));
        }
        text.remove_prefix(std::max(size, size_t{1}));
    }
    return shown;
}

bool is_plain(std::string_view text) {
    return std::none_of(text.begin(), text.end(), [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return is_control(byte) || (byte >= 0x80 && byte < 0xa0);
    });
}

// Asked anew with each output that is gathered: standard output may become another file.
bool g_to_terminal = false;

void gather(std::string_view bytes) {
    if (!bytes.empty()) g_last_printed = bytes.back();
    if (bytes.size() > OUTPUT_SIZE - g_output_used) {
        kpe_flush();
        if (bytes.size() >= OUTPUT_SIZE) {
            write_all(STDOUT_FILENO, bytes.data(), bytes.size());
            return;
        }
    }
    std::memcpy(g_output + g_output_used, bytes.data(), bytes.size());
    g_output_used += bytes.size();
}

bool goes_to_terminal() {
    if (g_output_used == 0) g_to_terminal = isatty(STDOUT_FILENO) != 0;
    return g_to_terminal;
}

}  // namespace

void kpe_print(std::string_view text) {
    if (goes_to_terminal() && !is_plain(text)) return gather(harmless(text));
    gather(text);
}

void kpe_send_to_terminal(std::string_view bytes) { gather(bytes); }

void kpe_end_line() { gather("\n"); }

void kpe_say(bool report, std::string_view line) {
    if (!report) return;
    kpe_print(line);
    kpe_end_line();
}

void kpe_say_lines(std::string_view text) {
    while (!text.empty()) kpe_say(true, kpe_take_line(text));
}

void kpe_complain(bool report, std::string_view what) {
    ++g_complaints;
    if (!report) return;
    kpe_print("?");
    kpe_say(report, what);
}

size_t kpe_complaints() { return g_complaints; }

void kpe_warn(std::string_view line) {
    kpe_flush();
    const bool terminal = isatty(STDERR_FILENO) != 0;
    const std::string text = (terminal ? harmless(line) : std::string(line)) + "\n";
    write_all(STDERR_FILENO, text.data(), text.size());
    if (terminal) g_last_printed = '\n';
    g_warned = true;
}

void kpe_ask_reader(std::string_view bytes) {
    kpe_flush();
    write_all(STDERR_FILENO, bytes.data(), bytes.size());
}

bool kpe_warned() {
    const bool warned = g_warned;
    g_warned = false;
    return warned;
}

void kpe_flush() {
    write_all(STDOUT_FILENO, g_output, g_output_used);
    g_output_used = 0;
}

bool kpe_at_line_start() { return g_last_printed == '\n'; }

std::string kpe_counted(size_t n, std::string_view noun) {
    std::string text = std::to_string(n);
    text += ' ';
    text += noun;
    if (n != 1) text += 's';
    return text;
}
