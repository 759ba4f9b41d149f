#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstring>
#include <optional>
#include <thread>

#include "faults/program.h"
#include "files/file_handle.h"

// The program killed in the middle of a save of a large file: see ./check soak.

namespace {

using Clock = std::chrono::steady_clock;

size_t setting(const char* name, size_t otherwise) {
    const char* const value = getenv(name);
    return value ? std::stoul(value) : otherwise;
}

// Text that shows any misplaced or missing piece.
std::string numbered(size_t size) {
    std::string text;
    text.reserve(size + 20);
    while (text.size() < size) text += std::to_string(text.size()) + "\n";
    return text;
}

class Killed : public ProgramTest {
protected:
    // Starts the program on t, lets it insert an "x" at the start, and tells it to end with a save.
    pid_t start_save() {
        int in[2], out[2];
        EXPECT_EQ(pipe2(in, O_CLOEXEC) + pipe2(out, O_CLOEXEC), 0);
        const pid_t child = start({"t"}, "", [&] {
            dup2(in[0], 0);
            dup2(out[1], 1);
        });
        close(in[0]);
        close(out[1]);
        const FileHandle to(in[1]);
        output_ = FileHandle(out[0]);  // stays open: who loses its reader ends
        const auto type = [&](std::string_view line) { EXPECT_TRUE(kpe_write_all(to.fd(), line, "\n")); };
        type("INSERT \"x\"");
        std::string shown;
        char c = 0;
        while (std::ranges::count(shown, '*') < 2 && read(output_.fd(), &c, 1) == 1) shown += c;
        type("EXIT");
        return child;
    }
    // How many were inserted; no value unless the rest is the whole text.
    std::optional<size_t> inserted(const std::string& text) const {
        const std::string found = dir.get("t");
        const size_t count = found.find_first_not_of('x');
        if (count == std::string::npos || found.size() - count != text.size()) return std::nullopt;
        if (memcmp(found.data() + count, text.data(), text.size()) != 0) return std::nullopt;
        return count;
    }

private:
    FileHandle output_;
};

TEST_F(Killed, AtAnyMomentOfASave) {
    const size_t moments = setting("KPE_SOAK_MOMENTS", 10);
    const std::string text = numbered(setting("KPE_SOAK_BYTES", 2'000'000));
    dir.put("t", text);
    pid_t session = start_save();
    const auto begun = Clock::now();
    ASSERT_EQ(status_of(session), 0);
    const auto whole_save = Clock::now() - begun;

    size_t before = 1, inside = 0, kept_old = 0;
    for (size_t moment = 0; moment < moments; ++moment) {
        session = start_save();
        std::this_thread::sleep_until(Clock::now() + whole_save * moment / moments);
        kill(session, SIGKILL);
        const bool killed = status_of(session) == -SIGKILL;
        const std::optional<size_t> now = inserted(text);
        ASSERT_TRUE(now.has_value()) << "cut at moment " << moment << " of " << moments;
        EXPECT_TRUE(*now == before + 1 || (killed && *now == before)) << *now << " after " << before;
        inside += killed;
        kept_old += *now == before;
        before = *now;
    }
    EXPECT_EQ(status_of(start_save()), 0);
    // The journals that the killed sessions left lie in the state directory.
    for (const std::string& name : dir.names()) EXPECT_TRUE(name == "t" || name == "t.jou" || name == ".local") << name;
    printf("%zu bytes, a save takes %lld ms: of %zu moments %zu fell inside it, %zu left the old text, %zu the new\n",
           text.size(), static_cast<long long>(whole_save / std::chrono::milliseconds(1)), moments, inside, kept_old,
           moments - kept_old);
    EXPECT_GT(inside, 0U);
}

}  // namespace
