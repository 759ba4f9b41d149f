#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>

#include "editor/kpe.h"
#include "files/file_place.h"
#include "files/state_directory.h"
#include "system/input.h"
#include "system/report.h"

using namespace std::chrono_literals;

namespace {

// What is typed goes to the disk when nothing was typed for a moment, and at most once a second.
constexpr std::chrono::milliseconds SYNC_DELAY = 1s;

constexpr const char* NULL_DEVICE = "/dev/null";  // named on purpose, to have no journal

}  // namespace

std::string Editor::journal_path() const {
    if (journal_override_ && !journal_override_->empty()) return *journal_override_;
    if (policy_.private_journal) return kpe_private_journal(filename_);
    return filename_.empty() ? ".kpe.jou" : filename_ + ".jou";
}

void Editor::note_used_file(const std::string& path) {
    if (path.empty() || !used_files_.insert(path).second) return;
    if (journal_.is_open() && kpe_same_place(path, journal_path())) end_journal("it is a file of this session");
}

bool Editor::is_used_file(const std::string& path) const {
    const auto same = [&](const std::string& used) { return kpe_same_place(used, path); };
    return std::any_of(used_files_.begin(), used_files_.end(), same) ||
           std::any_of(all_files_.begin(), all_files_.end(), same) || (output_file_ && same(*output_file_));
}

// Once a line is missing, those behind it would be replayed over another text.
void Editor::end_journal(const std::string& reason) {
    const std::string path = journal_path();
    ended_journals_.insert(path);
    journal_.close();
    if (!reason.empty() && path != NULL_DEVICE)
        tell_user("?This session has no journal from here on, " + path + ": " + reason);
}

// Each line is in the file before it is executed.
void Editor::append_journal_line(const std::string& line) {
    using Result = JournalFile::Result;
    const std::string path = journal_path();
    if (is_comment_or_blank(line) || ended_journals_.contains(path)) return;
    if (!journal_.is_at(path)) {
        if (is_used_file(path)) return end_journal("it is a file of this session");
        if (policy_.private_journal) kpe_make_directories(path);
        switch (journal_.open(path)) {
            case Result::Refused:
                return end_journal(journal_.reason());
            case Result::Failed:
                return end_journal("");
            case Result::Done:
                break;
        }
    }
    if (journal_.append(line) != Result::Done) return end_journal(std::strerror(errno));
    journal_sync_.ask(SYNC_DELAY);
}

void Editor::sync_journal() {
    if (!journal_.sync()) journal_sync_.ask(SYNC_DELAY);
}

// A journal that others can write to would have their commands carried out with our rights.
void Editor::try_recover_journal() {
    const std::string path = journal_path();
    std::string refused;
    const FileHandle journal = kpe_open_journal(path, refused);
    TextBuffer commands;
    if (journal.is_open() && commands.load(path) && kpe_file_state(journal.fd()).is_file(commands.loaded_file())) {
        kpe_say(true, "Recovering from " + path);
        // What was typed for a command to read is not in a journal, and what is typed now was meant for the prompt.
        const InputFrom nowhere(InputFrom::Nowhere);
        // An EXIT before the last line removes the journal with lines behind it that nobody has seen.
        run_commands(commands, /*verbose=*/true, [&] { replayed_journal_ = commands.loaded_file(); });
        return;
    }
    kpe_complain(true, "No journal file: " + path);
    if (!refused.empty()) tell_user("?The journal is not replayed: it " + refused);
}

// Only a file that could be a journal goes: somebody may have named a pipe, or /dev/null to have none.
void Editor::delete_journal_file() {
    const std::string path = journal_path();
    if (!file_exists(path) || is_used_file(path)) return;
    std::string kept;
    const auto result = journal_.remove(path, replayed_journal_, kept);
    if (!kept.empty()) tell_user("?A journal that was never replayed is kept in " + kept);
    if (result == JournalFile::Result::Refused) tell_user("?The journal " + path + " stays: " + journal_.reason());
}
