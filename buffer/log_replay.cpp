#include "buffer/log_replay.h"

#include <sys/stat.h>
#include <utility>

#include "buffer/text_buffer.h"
#include "buffer/text_change.h"
#include "buffer/text_hash.h"
#include "files/file_reader.h"
#include "system/packed.h"

namespace {

constexpr size_t MOST_NUMBERS = 10000;  // buffers and sources of a session

// A FIFO or a device that came to that place meanwhile is not read: that could last for ever.
bool load(const std::string& path, TextBuffer::LineEnds ends, TextBuffer& text) {
    struct stat status;
    if (stat(path.c_str(), &status) == 0 && kpe_file_state(status).is_special()) return false;
    text.load(path, nullptr, ends);
    return text.load_state() == TextBuffer::Load::Whole;
}

// A change begins with the milliseconds since the one before. The sum of hostile ones wraps around.
int64_t later(int64_t time, std::string_view change) {
    return static_cast<int64_t>(static_cast<uint64_t>(time) + Unpacker(change).number());
}

}  // namespace

bool LogReplay::open(const std::string& path) {
    bytes_ = kpe_read_file(path, nullptr).block;
    LogReader records(bytes_->bytes());
    const auto first = records.next();
    if (!first || first->kind != LogRecord::Head) return false;
    const auto head = LogHead::unpack(first->content);
    if (!head) return false;
    head_ = *head;
    newest_ = head_.started;
    while (const auto record = records.next()) {
        if (record->kind == LogRecord::Rescued) rescue_files_.emplace_back(record->content);
        if (record->kind != LogRecord::Change) continue;
        ++changes_;
        newest_ = later(newest_, record->content);
    }
    unread_ = records.unread();
    damaged_ = records.is_damaged();
    return true;
}

// The file is as it was, or has the same text still. Or it was saved just before the session was killed: then what was
// changed afterwards is left to do. Whoever asks for an earlier state gets it from the file as it was only.
bool LogReplay::fits_file(int64_t until) {
    file_ = LineStore(std::vector<std::string>{""});
    if (!head_.from_file) return true;
    TextBuffer file;
    const auto ends = head_.line_ends_same ? TextBuffer::LineEnds::Same : TextBuffer::LineEnds::Plain;
    const bool there = load(head_.path, ends, file);
    file_ = file.lines();
    bool fits = there ? file.loaded_file() == head_.file
                      : file.load_state() == TextBuffer::Load::Missing && head_.file == FileState();
    const uint64_t hash = kpe_text_hash(file_);
    LogReader records(bytes_->bytes());
    size_t saved_at = 0, index = 0;
    while (const auto record = records.next()) {
        ++index;
        if (record->kind == LogRecord::Base) fits = Unpacker(record->content).number() == hash;
        if (record->kind == LogRecord::Saving && Unpacker(record->content).number() == hash) saved_at = index;
    }
    if (fits || saved_at == 0 || until < newest_) return fits;
    begin_ = saved_at;
    return true;
}

bool LogReplay::replay(int64_t until) {
    obstacle_.clear();
    texts_.clear();
    names_.assign({"MAIN"});
    source_texts_.clear();
    sources_.clear();
    missing_.clear();
    begin_ = repeated_ = 0;
    if (!fits_file(until)) {
        obstacle_ = "the file has changed since";
        return false;
    }
    sources_.push_back(begin_ == 0 ? &file_ : nullptr);  // behind a save the file is another text
    texts_["MAIN"] = file_;
    LogReader records(bytes_->bytes());
    int64_t time = head_.started;
    size_t index = 0;
    while (const auto record = records.next()) {
        const bool skipped = index++ < begin_;
        if (record->kind == LogRecord::Change) {
            time = later(time, record->content);
            if (time > until) return true;
            if (skipped) {
                ++repeated_;
                continue;
            }
        }
        if (!repeat(*record)) {
            obstacle_ = missing_.empty() ? "the log does not fit from there on"
                                         : missing_ + ", which was read there, has changed since";
            return true;
        }
    }
    if (damaged_) obstacle_ = "the log is damaged, " + std::to_string(unread_) + " bytes at its end cannot be read";
    return true;
}

bool LogReplay::repeat(const LogReader::Record& record) {
    Unpacker from(record.content);
    switch (record.kind) {
        case LogRecord::Buffer:
            if (from.number() != names_.size() || names_.size() > MOST_NUMBERS) return false;
            names_.emplace_back(from.left());
            texts_[names_.back()] = LineStore(std::vector<std::string>{""});
            return true;
        case LogRecord::Source:
            add_source(record.content);
            return true;
        case LogRecord::Change: {
            from.number();
            const uint64_t buffer = from.number();
            // What another buffer held before the save is not known: only the text of the file goes on from there.
            if (begin_ > 0 && buffer > 0) return true;
            if (buffer >= names_.size() || !kpe_apply_change(texts_[names_[buffer]], from.left(), sources_))
                return false;
            ++repeated_;
            return true;
        }
        default:
            return true;
    }
}

void LogReplay::add_source(std::string_view content) {
    Unpacker from(content);
    const uint64_t number = from.number();
    const std::string path(from.text());
    kpe_unpack_file(from);
    const uint64_t hash = from.number();
    if (!from.good() || number > MOST_NUMBERS) return;
    if (number >= sources_.size()) sources_.resize(number + 1);
    TextBuffer text;
    if (load(path, TextBuffer::LineEnds::Plain, text) && kpe_text_hash(text.lines()) == hash) {
        source_texts_.push_back(std::make_unique<LineStore>(text.lines()));
        sources_[number] = source_texts_.back().get();
    } else if (missing_.empty()) {
        missing_ = path;
    }
}

std::optional<uint64_t> LogReplay::only_text() const {
    if (!obstacle_.empty()) return std::nullopt;
    for (const auto& [name, text] : texts_)
        if (name != "MAIN" && name != "PASTE" && (text.size() > 1 || text.length(0) > 0)) return std::nullopt;
    return kpe_text_hash(text());
}

std::vector<std::string> LogReplay::added_text() const {
    std::vector<std::string> lines;
    size_t last_row = SIZE_MAX;
    LogReader records(bytes_->bytes());
    while (const auto record = records.next()) {
        if (record->kind != LogRecord::Change) continue;
        Unpacker from(record->content);
        from.number();
        if (from.number() > 0) continue;
        for (const AddedText& added : kpe_added_text(from.left())) {
            if (added.text.empty()) continue;
            if (lines.empty() || added.row != last_row) lines.push_back(std::to_string(added.row + 1) + ": ");
            lines.back() += added.text;
            last_row = added.row;
        }
    }
    return lines;
}
