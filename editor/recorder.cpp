#include "editor/recorder.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <unistd.h>
#include <utility>

#include "buffer/text_hash.h"
#include "files/file_place.h"
#include "system/packed.h"

using namespace std::chrono_literals;

namespace {

// What was written gets to the disk soon, but not while keys are coming in.
constexpr std::chrono::milliseconds SYNC_DELAY = 300ms;
constexpr std::chrono::milliseconds TIDY_DELAY = 2s;
// Larger files are known by their names and times alone.
constexpr off_t LARGEST_HASHED = off_t{256} << 20;
constexpr size_t HASHED_AT_ONCE = size_t{4} << 20;  // bytes; about a millisecond
constexpr uint64_t SMALLEST_LIMIT = uint64_t{64} << 20;

int64_t now_in_milliseconds() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
}

std::string host_name() {
    std::array<char, 256> name{};
    gethostname(name.data(), name.size() - 1);
    return name.data();
}

const LineStore& empty_text() {
    static const LineStore EMPTY(std::vector<std::string>{""});
    return EMPTY;
}

uint64_t bytes_of(const LineStore& text) {
    uint64_t bytes = 0;
    for (const LineRun& run : text.runs()) bytes += run.bytes.size();
    return bytes;
}

}  // namespace

void SessionRecorder::begin(LogHead head, const LineStore& text) {
    remove();
    on_ = true;
    head_ = std::move(head);
    base_ = text;
    if (sources_of_log_.empty()) sources_of_log_.emplace_back();
    for (Source& source : sources_of_log_) source.in_log = false;
    list_sources();
    std::erase_if(buffers_, [](const auto& buffer) { return !buffer.second.left_out; });
    buffers_["MAIN"] = {0, base_, true, !head_.from_file};
    most_bytes_ = 0;
    hashed_rows_ = 0;
    hash_ = 0;
}

void SessionRecorder::leave_out(const std::string& buffer, const LineStore& text) {
    if (on_ && buffer != "MAIN") buffers_[buffer] = {0, text, false, true};
}

void SessionRecorder::add_source(const std::string& path, const FileState& file, const LineStore& text) {
    if (!on_) return;
    sources_of_log_.push_back({path, file, text, false});
    sources_.add(sources_of_log_.size() - 1, text);
}

void SessionRecorder::list_sources() {
    sources_.clear();
    if (head_.from_file) sources_.add(0, base_);
    for (size_t number = 1; number < sources_of_log_.size(); ++number)
        if (!sources_of_log_[number].path.empty()) sources_.add(number, sources_of_log_[number].text);
}

bool SessionRecorder::reads_back(const LineStore& text) const {
    for (const LineRun& run : text.runs()) {
        const auto known = sources_.find(text.view(run.first_row));
        if (known && known->count >= run.rows) continue;
        if (run.bytes.find('\r') != run.bytes.npos) return false;
        const auto breaks = static_cast<size_t>(std::count(run.bytes.begin(), run.bytes.end(), '\n'));
        if (breaks != (run.terminated ? run.rows : 0)) return false;
    }
    return true;
}

void SessionRecorder::forget_source(const std::string& path) {
    bool any = false, in_log = false;
    for (Source& source : sources_of_log_) {
        if (source.path.empty() || !kpe_same_place(source.path, path)) continue;
        any = true;
        in_log = in_log || source.in_log;
        source = {};
    }
    if (any) list_sources();
    if (in_log && log_.is_open()) renew();
}

void SessionRecorder::give_up() {
    on_ = false;
    sync_.withdraw();
    hashing_.withdraw();
}

bool SessionRecorder::make() {
    const std::string directory = kpe_recovery_directory(head_.path);
    if (directory.empty() || !log_.make(directory, head_.path)) {
        why_not_ = directory.empty() ? 0 : errno;
        give_up();
        return false;
    }
    head_.host = host_name();
    head_.started = last_time_ = now_in_milliseconds();
    log_.add(LogRecord::Head, head_.packed());
    if (head_.from_file && head_.file.size <= LARGEST_HASHED) hashing_.ask(SYNC_DELAY);
    tidying_.ask(TIDY_DELAY);
    if (most_bytes_ == 0) most_bytes_ = std::max(SMALLEST_LIMIT, 2 * bytes_of(base_));
    // A text that no file holds is logged as a whole, but not before something has changed.
    if (Buffer& main = buffers_["MAIN"]; std::exchange(main.left_out, false)) {
        main.text = empty_text();
        add_change("MAIN", main, base_);
    }
    return true;
}

void SessionRecorder::note(const std::string& name, const LineStore& text) {
    if (!on_) return;
    const auto at = buffers_.find(name);
    if (at == buffers_.end()) {
        if (text.size() == 1 && text.length(0) == 0) return;
        Buffer& buffer = buffers_[name];
        buffer.text = empty_text();
        return add_change(name, buffer, text);
    }
    Buffer& buffer = at->second;
    if (buffer.text.is_copy_of(text)) return;
    if (buffer.left_out) {
        buffer.left_out = false;
        buffer.text = empty_text();
    }
    add_change(name, buffer, text);
}

void SessionRecorder::add_change(const std::string& name, Buffer& buffer, const LineStore& text) {
    std::vector<size_t> used;
    const std::string change = kpe_pack_change(buffer.text, text, sources_, used);
    buffer.text = text;
    if (change.empty()) return;
    if (!log_.is_open() && !make()) return;
    if (!buffer.known) {
        buffer.number = static_cast<size_t>(
            std::count_if(buffers_.begin(), buffers_.end(), [](const auto& other) { return other.second.known; }));
        buffer.known = true;
        std::string content;
        kpe_pack(content, uint64_t{buffer.number});
        log_.add(LogRecord::Buffer, content + name);
    }
    add_sources(used);
    const int64_t now = std::max(now_in_milliseconds(), last_time_);
    std::string content;
    content.reserve(change.size() + 16);
    kpe_pack(content, static_cast<uint64_t>(now - last_time_));
    kpe_pack(content, uint64_t{buffer.number});
    last_time_ = now;
    log_.add(LogRecord::Change, content += change);
}

void SessionRecorder::add_sources(const std::vector<size_t>& used) {
    for (const size_t number : used) {
        Source& source = sources_of_log_[number];
        if (number == 0 || std::exchange(source.in_log, true)) continue;
        std::string content;
        kpe_pack(content, uint64_t{number});
        kpe_pack(content, source.path);
        content += kpe_pack_file(source.file);
        kpe_pack(content, kpe_text_hash(source.text));
        log_.add(LogRecord::Source, content);
    }
}

bool SessionRecorder::commit() {
    if (why_not_ != 0) {
        errno = std::exchange(why_not_, 0);
        return false;
    }
    if (!log_.is_open()) return true;
    const uint64_t before = log_.size();
    if (!log_.write()) {
        const int error = errno;
        give_up();
        errno = error;
        return false;
    }
    if (log_.size() == before) return true;
    sync_.ask(SYNC_DELAY);
    if (log_.size() > most_bytes_) renew();
    errno = std::exchange(why_not_, 0);
    return errno == 0;
}

// What matters is only the difference of each text to the one that the file holds: usually that is much less than what
// led there.
void SessionRecorder::renew() {
    std::map<std::string, LineStore> texts;
    for (const auto& [name, buffer] : buffers_)
        if (!buffer.left_out) texts.emplace(name, buffer.text);
    SessionLog older = std::exchange(log_, SessionLog());
    for (Source& source : sources_of_log_) source.in_log = false;
    std::erase_if(buffers_, [](const auto& buffer) { return !buffer.second.left_out; });
    buffers_["MAIN"] = {0, base_, true, !head_.from_file};
    for (const auto& [name, text] : texts) note(name, text);
    if (on_ && log_.write() && (!log_.is_open() || log_.sync_now())) {
        most_bytes_ = std::max(most_bytes_, 2 * log_.size());
        older.remove();
        return;
    }
    if (why_not_ == 0) why_not_ = errno;
    log_.remove();
    log_ = std::move(older);
    give_up();
}

void SessionRecorder::note_saving(const LineStore& text) {
    if (!log_.is_open() || head_.file.size > LARGEST_HASHED || !buffers_["MAIN"].text.is_copy_of(text)) return;
    std::string content;
    kpe_pack(content, kpe_text_hash(text));
    log_.add(LogRecord::Saving, content);
    commit();
}

void SessionRecorder::hash_some() {
    if (!log_.is_open()) return;
    const size_t last = base_.size();
    if (hashed_rows_ < last) {
        const LineRun run = base_.run_from(hashed_rows_, HASHED_AT_ONCE);
        hash_ = kpe_text_hash(run, hash_);
        hashed_rows_ += run.rows;
        return hashing_.ask(0ms);
    }
    std::string content;
    kpe_pack(content, kpe_text_hash_of(hash_, last));
    log_.add(LogRecord::Base, content);
    log_.write();
}

void SessionRecorder::sync() {
    if (log_.is_open() && !log_.sync_later()) sync_.ask(SYNC_DELAY);
}

void SessionRecorder::end(LogEnd how, const std::vector<std::string>& rescue_files) {
    for (const std::string& path : rescue_files) log_.add(LogRecord::Rescued, path);
    log_.end(how);
    give_up();
}

void SessionRecorder::remove() {
    log_.remove();
    sync_.withdraw();
    hashing_.withdraw();
}
