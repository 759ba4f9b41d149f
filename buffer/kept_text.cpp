#include "buffer/kept_text.h"

#include "buffer/log_replay.h"
#include "buffer/text_buffer.h"

bool kpe_read_kept_text(const std::string& path, KeptText& kept, int64_t until) {
    LogReplay log;
    if (!log.open(path)) {
        TextBuffer file;
        file.load(path);
        kept.text = file.lines();
        return file.load_state() == TextBuffer::Load::Whole;
    }
    kept.is_log = true;
    kept.form = {log.head().returns, log.head().open_end};
    kept.all_changes = log.changes();
    const bool good = log.replay(until);
    kept.obstacle = log.obstacle();
    kept.changes = log.repeated();
    if (good) {
        kept.others = log.texts();
        kept.text = log.text();
        kept.others.erase("MAIN");
    } else {
        kept.misses_file = true;
        kept.added = log.added_text();
    }
    return good;
}
