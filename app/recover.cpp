#include "app/recover.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <getopt.h>
#include <memory>
#include <optional>
#include <string_view>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "buffer/kept_text.h"
#include "buffer/log_replay.h"
#include "config/n3_rzconfig.h"
#include "files/file_place.h"
#include "files/file_writer.h"
#include "files/kept_files.h"
#include "files/rescue_file.h"
#include "system/ascii.h"
#include "system/pages.h"
#include "system/report.h"
#include "system/version.h"

namespace {

constexpr std::string_view USAGE =
    "usage: kpe-recover [FILE]\n"
    "       kpe-recover [--at TIME] [--buffer NAME] --write OTHER FILE\n"
    "       kpe-recover [--at TIME] --edit FILE\n"
    "       kpe-recover --discard FILE | --purge\n"
    "\n"
    "Brings back what was typed in kpe and not saved. Without FILE it lists what there\n"
    "is. With FILE it shows how the text differs from the file. FILE is the name of the\n"
    "file that was edited, or of a log, a rescue file or a safety copy.\n"
    "\n"
    "  --write OTHER    write the text to OTHER, \"-\" for standard output\n"
    "  --edit           open FILE in kpe-editor with the text as an unsaved change\n"
    "  --at TIME        the text as it was then: HH:MM[:SS] or \"YYYY-MM-DD HH:MM[:SS]\"\n"
    "  --buffer NAME    the text of another buffer\n"
    "  --discard        remove what is kept for FILE\n"
    "  --purge          remove everything that is kept, but for sessions that still run\n"
    "  --help           print this\n"
    "  --version        print the version\n"
    "\n"
    "Exit status: 0 if it was done, 1 if there is nothing to recover, 2 on an error.";

constexpr int NOTHING = 1, FAILED = 2;

enum class Action { List, Show, Write, Edit, Discard, Purge, Help, Version };

struct Request {
    Action action = Action::List;
    std::string file, other, buffer, at;
};

int fail(const std::string& why) {
    kpe_warn("kpe-recover: " + why);
    return FAILED;
}

// --- The command line ---

struct Row {
    OptionForm shown;  // to those who type it
    const char* name;
    char code;
    std::optional<Action> action;           // what it asks for
    std::string Request::*value = nullptr;  // where its value goes, if it takes one
};
constexpr Row ROWS[] = {
    {{"--write=", "Write the text to another file", true}, "write", 'w', Action::Write, &Request::other},
    {{"--edit", "Open the file with the text as an unsaved change", false}, "edit", 'e', Action::Edit},
    {{"--at=", "The text as it was at that time", false}, "at", 'a', std::nullopt, &Request::at},
    {{"--buffer=", "The text of another buffer", false}, "buffer", 'b', std::nullopt, &Request::buffer},
    {{"--discard", "Remove what is kept for the file", false}, "discard", 'd', Action::Discard},
    {{"--purge", "Remove everything that is kept", false}, "purge", 'p', Action::Purge},
    {{"--help", "Print a summary and leave", false}, "help", 'h', Action::Help},
    {{"--version", "Print the version and leave", false}, "version", 'v', Action::Version},
};

// As getopt_long(3) wants them.
std::vector<option> long_options() {
    std::vector<option> options;
    for (const Row& row : ROWS)
        options.push_back({row.name, row.value ? required_argument : no_argument, nullptr, row.code});
    options.push_back({nullptr, 0, nullptr, 0});
    return options;
}

// A status if there is nothing left to do.
std::optional<int> read_arguments(int argc, char** argv, Request& request) {
    const auto wrong = [] {
        kpe_warn(USAGE);
        return FAILED;
    };
    const std::vector<option> options = long_options();
    int actions = 0;
    for (int code = 0; (code = getopt_long(argc, argv, "h", options.data(), nullptr)) != -1;) {
        const Row* const row =
            std::find_if(std::begin(ROWS), std::end(ROWS), [code](const Row& each) { return each.code == code; });
        if (row == std::end(ROWS)) return wrong();
        if (row->value) request.*row->value = optarg;
        if (!row->action) continue;
        ++actions;
        request.action = *row->action;
        if (request.action == Action::Help) return kpe_say_lines(USAGE), 0;
        if (request.action == Action::Version) return kpe_say(true, "kpe-recover " + kpe_version_string()), 0;
    }
    if (optind < argc) request.file = argv[optind++];
    if (optind < argc || actions > 1) return wrong();
    if (actions == 0 && !request.file.empty()) request.action = Action::Show;
    const bool alone = request.action == Action::List || request.action == Action::Purge;
    const bool timed = request.action != Action::Discard && !alone;
    if (alone != request.file.empty() || (!timed && (!request.at.empty() || !request.buffer.empty()))) return wrong();
    return std::nullopt;
}

// --- Times ---

std::string written_time(time_t seconds, const char* form) {
    std::tm local{};
    localtime_r(&seconds, &local);
    std::array<char, 32> text{};
    return {text.data(), std::strftime(text.data(), text.size(), form, &local)};
}

// The end of the second or of the minute that is named, in milliseconds since 1970. A time without a date is one of the
// day of newest.
std::optional<int64_t> time_named(const std::string& text, int64_t newest) {
    const time_t day = newest / 1000;
    for (const auto& [form, length] : {std::pair("%Y-%m-%d %H:%M:%S", 1), std::pair("%Y-%m-%d %H:%M", 60),
                                       std::pair("%H:%M:%S", 1), std::pair("%H:%M", 60)}) {
        std::tm local{};
        localtime_r(&day, &local);
        local.tm_sec = 0;
        const char* const end = strptime(text.c_str(), form, &local);
        if (!end || *end != '\0') continue;
        local.tm_isdst = -1;
        return int64_t{std::mktime(&local)} * 1000 + length * 1000 - 1;
    }
    return std::nullopt;
}

// --- What there is ---

struct Entry {
    KeptFile kept;
    std::string file;    // the path of the file that it is about; only its name if no more is known
    int64_t newest = 0;  // the time of the last change, in milliseconds since 1970
    size_t changes = 0;
    bool readable = true;
};

Entry entry_of(const KeptFile& kept) {
    Entry entry{kept, kept.name, int64_t{kept.changed.tv_sec} * 1000, 0, true};
    if (kept.kind != KeptFile::Kind::Log) return entry;
    LogReplay log;
    entry.readable = log.open(kept.path);
    if (!entry.readable) return entry;
    entry.file = log.head().path.empty() ? "-" : log.head().path;
    entry.newest = log.newest();
    entry.changes = log.changes();
    return entry;
}

// Logs without a change have nothing to say.
std::vector<Entry> all_entries() {
    std::vector<Entry> entries;
    for (const KeptFile& kept : kpe_kept_files()) {
        Entry entry = entry_of(kept);
        const bool log = kept.kind == KeptFile::Kind::Log;
        if (!log || (entry.changes > 0 && !kept.live)) entries.push_back(std::move(entry));
    }
    return entries;
}

// A file may be named without its version. A rescue file and a safety copy know only the name.
std::vector<Entry> entries_for(const std::string& file) {
    const std::string path = file == "-" ? file : kpe_absolute_path(file);
    const std::string name = kpe_safe_name(path.substr(path.rfind('/') + 1));
    std::vector<Entry> entries = all_entries();
    std::erase_if(entries, [&](const Entry& entry) {
        if (entry.kept.path == path) return false;
        const bool log = entry.kept.kind == KeptFile::Kind::Log;
        return log ? entry.file != path && n3rz::strip_version(entry.file) != path : entry.file != name;
    });
    return entries;
}

// The newest log, else the newest rescue file.
const Entry* best_of(const std::vector<Entry>& entries, const std::string& file) {
    const std::string path = kpe_absolute_path(file);
    const Entry* best = nullptr;
    for (const Entry& entry : entries) {
        if (entry.kept.path == path) return &entry;
        const bool log = entry.kept.kind == KeptFile::Kind::Log;
        const bool rescue = entry.kept.kind == KeptFile::Kind::Rescue && entry.kept.buffer == "MAIN";
        if ((log && (!best || best->kept.kind != KeptFile::Kind::Log)) || (rescue && !best)) best = &entry;
    }
    return best;
}

std::string why_kept(const KeptFile& kept) {
    switch (kept.kind) {
        case KeptFile::Kind::Rescue:
            return "rescue file";
        case KeptFile::Kind::SafetyCopy:
            return "safety copy";
        case KeptFile::Kind::Log:
            break;
    }
    return kept.end == LogEnd::Killed ? "killed" : kept.end == LogEnd::Discarded ? "discarded" : "rescued";
}

std::optional<int64_t> until_when(const Request& request, const Entry& entry) {
    return request.at.empty() ? std::numeric_limits<int64_t>::max() : time_named(request.at, entry.newest);
}

// In the list each entry is one line, whatever its name is.
std::string harmless(std::string name) {
    std::replace_if(
        name.begin(), name.end(), [](char c) { return static_cast<unsigned char>(c) < ' '; }, '?');
    return name;
}

// --- The actions ---

int list() {
    const std::vector<Entry> entries = all_entries();
    const bool person = isatty(STDOUT_FILENO) != 0;
    if (person && entries.empty()) kpe_say(true, "There is nothing to recover");
    Pages pages;
    for (const Entry& entry : entries) {
        const bool log = entry.kept.kind == KeptFile::Kind::Log;
        const std::string changes =
            log ? kpe_counted(entry.changes, "change") : std::to_string(entry.kept.size) + " bytes";
        const time_t seconds = entry.newest / 1000;
        const std::string where = log ? entry.file : entry.kept.path;
        if (person) {
            std::array<char, 64> front{};
            std::snprintf(front.data(), front.size(), "%s  %-11s  %14s  ",
                          written_time(seconds, "%Y-%m-%d %H:%M").c_str(), why_kept(entry.kept).c_str(),
                          changes.c_str());
            pages.say(front.data() + where);
        } else {
            pages.say(harmless(entry.file) + "\t" + written_time(seconds, "%Y-%m-%dT%H:%M:%S") + "\t" +
                      (log ? std::to_string(entry.changes) : "-") + "\t" + why_kept(entry.kept) + "\t" +
                      harmless(entry.kept.path));
        }
    }
    if (!entries.empty()) pages.tell("kpe-recover FILE shows what has changed.");
    return entries.empty() ? NOTHING : 0;
}

// Whether all is well, else it is told.
bool tell_obstacle(const KeptText& kept, const std::string& file) {
    if (kept.obstacle.empty()) return true;
    const std::string counts = std::to_string(kept.changes) + " of " + kpe_counted(kept.all_changes, "change");
    kpe_warn("?" + file + ": " + (kept.misses_file ? "" : counts + " are there; ") + kept.obstacle);
    return false;
}

// The text that was asked for. Sets status and returns false if there is none.
bool find_text(const Request& request, const Entry& entry, KeptText& kept, int& status) {
    const auto until = until_when(request, entry);
    if (!until) return status = fail("not a time: " + request.at), false;
    errno = 0;
    if (!kpe_read_kept_text(entry.kept.path, kept, *until)) {
        if (!kept.is_log) kept.obstacle = std::strerror(errno);
        tell_obstacle(kept, request.file);
        return status = FAILED, false;
    }
    if (request.buffer.empty() || request.buffer == "MAIN") return true;
    const auto other = kept.others.find(request.buffer);
    if (other == kept.others.end()) return status = fail("no buffer " + request.buffer + " there"), false;
    kept.text = other->second;
    kept.form = {};
    return true;
}

bool write_text(const KeptText& kept, const KpePut& put) {
    const bool empty = kept.text.size() == 1 && kept.text.length(0) == 0;
    return empty || kpe_put_rows(kept.text, kept.form, put);
}

// What is there already is somebody's text; only the file itself may be replaced.
int write_other(const Request& request, const KeptText& kept) {
    if (request.other == "-") {
        kpe_flush();
        const bool good =
            write_text(kept, [](std::string_view bytes) { return kpe_write_all(STDOUT_FILENO, bytes, {}); });
        return good ? 0 : fail(std::string("standard output: ") + std::strerror(errno));
    }
    const bool itself = kpe_absolute_path(request.other) == kpe_absolute_path(request.file);
    if (!itself && access(request.other.c_str(), F_OK) == 0) return fail(request.other + " exists already");
    FileWriter file;
    const auto existing = itself ? FileWriter::Existing::Replace : FileWriter::Existing::Refuse;
    const bool good = file.open(request.other, existing) &&
                      write_text(kept, [&](std::string_view bytes) { return file.write(bytes); }) && file.commit();
    return good ? 0 : fail(request.other + ": " + std::strerror(errno));
}

// A log has served its purpose when the file holds all that it leads to.
void remove_taken(const Request& request, const Entry& entry, const KeptText& kept) {
    const bool is_main = request.buffer.empty() || request.buffer == "MAIN";
    const bool others = std::any_of(kept.others.begin(), kept.others.end(), [](const auto& other) {
        return other.first != "PASTE" && (other.second.size() > 1 || other.second.length(0) > 0);
    });
    if (!kept.is_log || !is_main || others || kept.changes != kept.all_changes || request.other == "-") return;
    if (kpe_absolute_path(request.other) == entry.file) unlink(entry.kept.path.c_str());
}

// FILE may have been the name of a log.
std::string edited_file(const Request& request, const Entry& entry) {
    const bool known = entry.kept.kind == KeptFile::Kind::Log && request.file == entry.kept.path;
    return known ? entry.file : request.file;
}

// What diff(1) finds, line by line; nothing if it cannot be run.
int show_difference(const std::string& file, const KeptText& kept, Pages& pages) {
    const FileHandle text(memfd_create("kpe-recover", 0));  // inherited by diff
    if (!text.is_open() ||
        !write_text(kept, [&](std::string_view bytes) { return kpe_write_all(text.fd(), bytes, {}); }))
        return fail(std::strerror(errno));
    const std::string there = access(file.c_str(), F_OK) == 0 ? file : "/dev/null";
    const std::string ours = "/dev/fd/" + std::to_string(text.fd());
    std::array<int, 2> ends{};
    if (pipe(ends.data()) != 0) return fail(std::strerror(errno));
    kpe_flush();
    const pid_t child = fork();
    if (child == 0) {
        dup2(ends[1], STDOUT_FILENO);
        close(ends[0]);
        close(ends[1]);
        const std::string recovered = file + " (recovered)";
        execlp("diff", "diff", "-a", "-u", "--label", file.c_str(), "--label", recovered.c_str(), "--", there.c_str(),
               ours.c_str(), static_cast<char*>(nullptr));
        _exit(127);
    }
    close(ends[1]);
    const std::unique_ptr<FILE, int (*)(FILE*)> lines(fdopen(ends[0], "r"), fclose);
    char* line = nullptr;
    size_t room = 0;
    for (ssize_t size = 0; (size = getline(&line, &room, lines.get())) > 0;)
        pages.say(std::string_view(line, static_cast<size_t>(size - (line[size - 1] == '\n' ? 1 : 0))));
    std::free(line);
    int status = 0;
    if (child < 0 || waitpid(child, &status, 0) != child || !WIFEXITED(status) || WEXITSTATUS(status) > 1)
        return fail("diff(1) cannot be run: kpe-recover --write - FILE prints the text");
    return WEXITSTATUS(status) == 0 ? NOTHING : 0;
}

int show(const Request& request, const std::vector<Entry>& entries, const Entry& entry) {
    KeptText kept;
    int status = 0;
    if (!find_text(request, entry, kept, status)) {
        if (kept.added.empty()) return status;
        kpe_warn("This was added, row by row:");
        Pages pages;
        for (const std::string& line : kept.added) pages.say(line);
        return status;
    }
    const bool complete = tell_obstacle(kept, request.file);
    Pages pages;
    status = show_difference(edited_file(request, entry), kept, pages);
    if (status == NOTHING) pages.tell(request.file + " holds this text already.");
    if (status != 0) return status;
    const std::string word = kpe_shell_word(request.file);
    pages.tell("To take it: kpe-recover --edit " + word + ", or kpe-recover --write OTHER " + word);
    if (entries.size() > 1)
        pages.tell("There is more: see kpe-recover, and name a log or a copy in place of the file.");
    return complete ? 0 : FAILED;
}

int remove_all(const std::vector<Entry>& entries, bool aloud) {
    size_t removed = 0;
    int status = entries.empty() ? NOTHING : 0;
    for (const Entry& entry : entries) {
        if (unlink(entry.kept.path.c_str()) == 0)
            ++removed;
        else
            status = fail(entry.kept.path + ": " + std::strerror(errno));
    }
    if (aloud && isatty(STDOUT_FILENO) != 0) kpe_say(true, kpe_counted(removed, "file") + " removed");
    return status;
}

RecoverResult act_on_file(const Request& request) {
    RecoverResult result;
    std::vector<Entry> entries = entries_for(request.file);
    if (request.action == Action::Discard) {
        result.status = remove_all(entries, /*aloud=*/false);
        return result;
    }
    const Entry* const entry = best_of(entries, request.file);
    if (!entry) {
        if (isatty(STDERR_FILENO) != 0) kpe_warn("There is nothing to recover for " + request.file);
        result.status = NOTHING;
    } else if (request.action == Action::Show) {
        result.status = show(request, entries, *entry);
    } else if (KeptText kept; find_text(request, *entry, kept, result.status)) {
        const bool complete = tell_obstacle(kept, request.file);
        if (request.action == Action::Write) {
            result.status = write_other(request, kept);
            if (result.status == 0 && complete) remove_taken(request, *entry, kept);
        }
        if (result.status == 0 && !complete) result.status = FAILED;
        if (request.action == Action::Edit) {
            const bool log = entry->kept.kind == KeptFile::Kind::Log;
            const bool has_file = log ? entry->file != "-" : request.file != entry->kept.path;
            result.status = has_file ? 0 : fail("it has no file: use --write");
            if (has_file) result.edit = log ? entry->file : request.file;
            result.edit_from = entry->kept.path;
            result.edit_until = until_when(request, *entry).value();
        }
    }
    return result;
}

}  // namespace

bool kpe_called_as_recover(const char* argv0) { return argv0 && std::string_view(argv0).ends_with("recover"); }

RecoverResult kpe_recover(int argc, char** argv) {
    Request request;
    RecoverResult result;
    if (const auto status = read_arguments(argc, argv, request))
        result.status = *status;
    else if (request.action == Action::List)
        result.status = list();
    else if (request.action == Action::Purge)
        result.status = remove_all(all_entries(), /*aloud=*/true);
    else
        result = act_on_file(request);
    kpe_flush();
    return result;
}

std::vector<OptionForm> kpe_recover_option_forms() {
    std::vector<OptionForm> forms;
    for (const Row& row : ROWS) forms.push_back(row.shown);
    return forms;
}
