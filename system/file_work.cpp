#include "system/file_work.h"

#include <climits>
#include <cstring>
#include <sys/uio.h>
#include <unistd.h>

namespace {

// In plain memory, as a signal handler reads them.
char g_path[PATH_MAX], g_old_text[PATH_MAX];

void put(char (&place)[PATH_MAX], const std::string& text) { place[text.copy(place, PATH_MAX - 1)] = '\0'; }

iovec piece(const char* text) { return {const_cast<char*>(text), std::strlen(text)}; }

// A terminal must not obey bytes of a file's name.
void make_harmless(char* text) {
    for (; *text != '\0'; ++text)
        if (static_cast<unsigned char>(*text) < ' ' || *text == 0x7f) *text = '?';
}

}  // namespace

volatile std::sig_atomic_t FileWork::depth_ = 0, FileWork::progress_ = 0;

FileWork::FileWork(const std::string& path) : path_before_(g_path) {
    put(g_path, path);
    put(g_old_text, "");
    depth_ = depth_ + 1;
}

FileWork::~FileWork() {
    depth_ = depth_ - 1;
    put(g_path, path_before_);
    put(g_old_text, "");
}

void FileWork::old_text_in(const std::string& copy) { put(g_old_text, copy); }

void FileWork::tell_unfinished(int fd) {
    if (!lasts()) return;
    make_harmless(g_path);
    make_harmless(g_old_text);
    const bool over = g_old_text[0] != '\0';
    const iovec pieces[] = {piece("?Ended before all was written to "), piece(g_path),
                            piece(over ? "; its old text is kept in " : ""), piece(g_old_text), piece("\r\n")};
    const ssize_t ignored = writev(fd, pieces, 5);
    static_cast<void>(ignored);
}
