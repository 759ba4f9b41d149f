#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "buffer/line_store.h"
#include "files/session_log.h"
#include "system/block.h"

// Repeats what a session log says, and so brings back the text that a session held when it ended.
class LogReplay {
public:
    // Reads the log. Returns false if the file cannot be read, or is no log.
    bool open(const std::string& path);

    // --- After open() ---
    const LogHead& head() const { return head_; }
    size_t changes() const { return changes_; }   // how many there are
    int64_t newest() const { return newest_; }    // when the last one was made, in milliseconds since 1970
    bool is_damaged() const { return damaged_; }  // whether changes may be missing at the end
    size_t unread() const { return unread_; }     // bytes at the end that are no whole record
    const std::vector<std::string>& rescue_files() const { return rescue_files_; }

    // Loads the file and repeats all changes that were made until that time. Returns whether the file is the one that
    // the log is about, unchanged, or already holds a later state of the text. Throws std::bad_alloc.
    bool replay(int64_t until = std::numeric_limits<int64_t>::max());

    // --- After replay() ---
    const LineStore& file() const { return file_; }  // the text of the file now
    const LineStore& text() const { return texts_.at("MAIN"); }
    const std::map<std::string, LineStore>& texts() const { return texts_; }  // by buffer; MAIN is the file's
    // The hash (kpe_text_hash) of the text that the log leads to, if it leads to nothing else: all changes were
    // repeated, and no other buffer held a text.
    std::optional<uint64_t> only_text() const;
    size_t repeated() const { return repeated_; }  // how many changes
    // Why not all of them were repeated, in words that follow "because"; "" if all were.
    const std::string& obstacle() const { return obstacle_; }

    // What can be said without the file: the text that came with the changes, one line for each row, "12: text".
    std::vector<std::string> added_text() const;

private:
    bool fits_file(int64_t until);
    bool repeat(const LogReader::Record& record);
    void add_source(std::string_view content);

    std::shared_ptr<Block> bytes_;
    LogHead head_;
    size_t changes_ = 0, unread_ = 0, repeated_ = 0;
    bool damaged_ = false;
    int64_t newest_ = 0;
    std::vector<std::string> rescue_files_;
    LineStore file_;
    size_t begin_ = 0;  // the record to begin with
    std::map<std::string, LineStore> texts_;
    std::vector<std::string> names_;  // of buffers, by number
    std::vector<std::unique_ptr<LineStore>> source_texts_;
    std::vector<const LineStore*> sources_;  // by number; null where one is not there any more
    std::string missing_;                    // the path of the first source that is not there any more
    std::string obstacle_;
};
