#include "editor/report.h"

#include <cerrno>
#include <cstring>
#include <poll.h>
#include <unistd.h>

#include "app/process.h"

namespace {

// What was printed and not handed over yet.
constexpr size_t OUTPUT_SIZE = 256 * 1024;
char g_output[OUTPUT_SIZE];
size_t g_output_used = 0;
char g_last_printed = '\n';
bool g_warned = false;

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

// With curses on the terminal, control bytes are shown and not obeyed; those of eight bits as well, by themselves
// and as UTF-8 has them.
std::string harmless(std::string_view line) {
    std::string shown;
    for (size_t i = 0; i < line.size(); ++i) {
        const auto byte = static_cast<unsigned char>(line[i]);
        const auto before = static_cast<unsigned char>(i > 0 ? line[i - 1] : 0);
        const bool continues = before >= 0x80 && before != 0xc2;  // the inside of a longer character
        if (byte < ' ' || byte == 0x7f) {
            shown += '^';
            shown += static_cast<char>(byte ^ 0x40);
        } else if (byte >= 0x80 && byte < 0xa0 && !continues) {
            shown += '?';
        } else {
            shown += line[i];
        }
    }
    return shown;
}

}  // namespace

void kpe_print(std::string_view text) {
    if (!text.empty()) g_last_printed = text.back();
    if (text.size() > OUTPUT_SIZE - g_output_used) {
        kpe_flush();
        if (text.size() >= OUTPUT_SIZE) {
            write_all(STDOUT_FILENO, text.data(), text.size());
            return;
        }
    }
    std::memcpy(g_output + g_output_used, text.data(), text.size());
    g_output_used += text.size();
}

void kpe_say(bool report, std::string_view line) {
    if (!report) return;
    kpe_print(line);
    kpe_print("\n");
}

void kpe_complain(bool report, std::string_view what) {
    if (!report) return;
    kpe_print("?");
    kpe_say(report, what);
}

void kpe_warn(std::string_view line) {
    kpe_flush();
    const std::string text = (g_curses_active ? harmless(line) : std::string(line)) + "\n";
    write_all(STDERR_FILENO, text.data(), text.size());
    g_warned = true;
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
