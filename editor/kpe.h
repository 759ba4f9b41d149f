#pragma once

#include <csignal>
#include <cstddef>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <utility>
#include <vector>

#include "buffer/match.h"
#include "buffer/text_buffer.h"
#include "buffer/write_rows.h"
#include "editor/line_editor.h"
#include "editor/line_history.h"
#include "editor/policy.h"
#include "editor/recorder.h"
#include "files/file_handle.h"
#include "files/journal_file.h"
#include "system/idle.h"

class Pages;
struct VerbHelp;

// This folder, editor/, is the session: the class Editor and the commands of line mode, one topic a file.
//
// Editor is the one session object. It owns the texts, the settings and everything else that a command can change. Its
// operations stand under the name of the file that defines them.
//
// Rows and columns are zero-based, and columns count bytes. Line numbers that the user sees are one-based. The
// parameter report says whether a command prints. If it is false, the command prints nothing; it only changes the state
// and message_.
class Editor {
public:
    static const int KPE_EXIT_EDITORABO = 4;                        // exit status if the file of -command is missing
    static constexpr int STATUS_DISCARDED = 1, STATUS_UNSAVED = 2;  // also as after an EXIT that could not write
    static constexpr size_t max_undo_ = 100;                        // most states on each of the two stacks

    enum class CommandResult { Continue = 0, EnterScreenMode = 1, ExitSave = 2, ExitNoSave = 3, Error = 4 };
    enum class Direction { Advance = 0, Backup = 1 };

    // Rows first to last, both inclusive; first <= last.
    struct LineRange {
        size_t first = 0, last = 0;
    };
    // The select range, from (r1, c1) to (r2, c2); the start comes first, and c2 is exclusive.
    struct SelSpan {
        size_t r1 = 0, c1 = 0, r2 = 0, c2 = 0;
    };
    struct Qualifiers {
        bool query = false, notype = false, brief = false;
        int brief_cols = 40;
        bool save = false, global = false, stay = false, duplicate = false, sequence = false;
        int seq_start = 100, seq_incr = 100;
    };
    struct ParsedCommand {
        std::string verb;      // full name in upper case; empty for an empty line
        std::string args;      // what follows the verb, trimmed, in its own case
        std::string original;  // the whole line, trimmed
        Qualifiers qualifiers;
    };
    // What the handler of a verb gets.
    struct Call {
        const std::string& args;
        const Qualifiers& quals;
        bool report;
    };
    // An undo state: all that one change can touch. Its texts share what has not changed.
    struct UndoSnapshot {
        TextBuffer buffer;
        std::map<std::string, TextBuffer> buffers;
        std::string current_buffer_name;
        size_t cursor_row = 0, cursor_col = 0, top_line = 0;
        Direction direction = Direction::Advance;
        std::string last_search, delete_char_buffer;
        LineStore delete_line_buffer;
        std::string delete_word_buffer;
        bool overstrike = false;
        LineStore::Thinned thinned = {};  // by the differences to the state above it on its stack
    };
    // An undo state that nobody can go back to any more, and those of its lines that are differences.
    struct DroppedState {
        UndoSnapshot state;
        LineStore::Differences differences;
    };
    // As long as the object lives, SIGINT sets g_kpe_abort_requested instead of ending the process.
    class AbortGuard {
    public:
        AbortGuard();
        ~AbortGuard();
        AbortGuard(const AbortGuard&) = delete;
        AbortGuard& operator=(const AbortGuard&) = delete;

    private:
        struct sigaction prev_;
    };

    // --- Session: editor/session.cpp ---
    Editor(std::vector<std::string> files, std::optional<std::string> command_file,
           std::optional<std::string> output_file, bool read_only, bool recover, std::optional<std::string> journal);
    ~Editor();
    Editor(const Editor&) = delete;
    Editor& operator=(const Editor&) = delete;
    void set_debug_keys(bool on) { debug_keys_ = on; }
    void set_no_command(bool on) { no_command_ = on; }
    void set_policy(SessionPolicy policy) { policy_ = std::move(policy); }
    void enable_versioning(bool on);  // true switches versions on; false changes nothing
    // Runs the whole session. Returns the exit status of the process when input ends; EXIT and QUIT do not return.
    int run();
    int line_mode();
    void handle_command_result(CommandResult r, bool exit_allowed);
    void reset_state();

    // --- Rescue: editor/rescue.cpp ---
    // For the end of a session: writes every text that is stored nowhere else to a rescue file, and tells the user
    // where. Throws nothing. Returns false if a text could not be kept whole.
    bool rescue();

    struct KeyTable;  // what each key is called and what it does: screen/keys.cpp

    // --- Commands: editor/dispatch.cpp ---
    CommandResult execute_command(const std::string& raw, bool report);

private:
    struct VerbTable;          // editor/dispatch.cpp
    struct SettingTable;       // editor/settings.cpp
    struct WordTable;          // editor/nokeypad.cpp
    struct Substitution;       // editor/substitute.cpp
    friend struct EditorPeek;  // the tests' one door

    void greet() const;                  // the lines at the start of line mode
    void stop_after(size_t complaints);  // if the policy asks for it, and more than so many were made by now
    void load_current_file();            // reads filename_ into buffer_, and makes MAIN a copy
    void tell_unread();                  // tells the user if the file could not be read whole
    void tell_lost_bytes();  // the same for a file that became unreadable later; it is not saved from then on

    // --- Text helpers of the command language: editor/text_helpers.cpp ---
    static std::string trim(const std::string& text);
    static std::string upper(const std::string& text);
    static bool starts_with_ci(const std::string& s, const std::string& prefix);
    static std::string strip_optional_quotes(const std::string& text);  // removes one pair of double quotes around it
    static bool is_comment_or_blank(const std::string& text);
    static bool is_abbrev(const std::string& word, const char* full, size_t min_len);
    static std::string strip_qualifiers_for_range(const std::string& text);  // cut at the first "/"

    // --- Qualifiers: editor/qualifiers.cpp ---
    static Qualifiers extract_qualifiers(std::string& text);
    static size_t substitute_tail_pos(const std::string& text);  // npos if no delimiter follows the verb directly

    // --- Recognition: editor/parse.cpp ---
    ParsedCommand parse_command(const std::string& raw) const;
    bool command_changes_text_or_buffers(const std::string& verb) const;

    // --- Line references and ranges: editor/ranges.cpp ---
    std::optional<size_t> parse_line_ref(const std::string& text) const;
    std::optional<LineRange> parse_line_range(const std::string& text) const;
    // The range with its end lowered to the last line. Its start stays, so a range behind the text becomes an empty
    // one, with first > last.
    LineRange end_clamped(const LineRange& range) const;
    // The range that text names, or the line of the cursor if text is blank.
    std::optional<LineRange> range_or_cursor_line(const std::string& text) const;

    // --- Dispatch: editor/dispatch.cpp ---
    CommandResult dispatch_command(const std::string& cleaned, const Qualifiers& quals, bool report);
    // If what was typed is how one leaves or saves elsewhere, tells a user at a terminal how it is done here.
    void tell_way_out(const std::string& typed);
    CommandResult goto_line_command(const std::string& args, bool report);
    CommandResult change_command(const Call& call);
    void type_command(const std::string& args, const Qualifiers& q, bool report);
    CommandResult delete_command(const Call& call);
    void find_command(const std::string& args, const Qualifiers& q, bool report);
    void find_next_command(bool report);
    void insert_command(const std::string& args, bool report);
    void set_direction(Direction d, bool report);
    void show_files(bool report);
    static std::string current_date_string();

    // --- Settings: editor/settings.cpp ---
    // Runs the verb of a setting. Returns false if verb is none.
    bool setting_command(const std::string& verb, const std::string& args, bool report);

    // --- Undo: editor/undo.cpp ---
    UndoSnapshot capture_snapshot();
    void restore_snapshot(UndoSnapshot& snapshot);
    void begin_undo_unit();
    // For a command or a key that failed: brings back the state at the start of the unit that it began last, if it
    // began one. Needs no memory.
    void take_back_unit();
    bool undo_last(bool report);
    bool redo_last(bool report);
    struct ExchangeTexts {
        const char *nothing, *message, *done;
    };
    using States = std::deque<UndoSnapshot>;  // oldest first
    void push_state(States& states, UndoSnapshot state);
    void drop_oldest(States& states);
    void free_dropped_states();
    size_t text_bytes() const;  // bytes of all buffers together
    // Takes the newest state of from, brings it back, and puts the present state on to. If from is empty, it returns
    // false and leaves a message.
    bool exchange_state(States& from, States& to, const ExchangeTexts& texts, bool report);

    // --- Search: editor/search.cpp ---
    bool check_abort(bool report);
    const Matcher& matcher() const;  // last_search_, compiled for the current SET SEARCH
    // Whether SET SEARCH BEGIN, END and WORD allow this match in the line.
    bool constraints_allow(const Matcher::Piece& line, const Matcher::Match& match) const;
    bool match_constraints_ok(size_t row, size_t col, size_t len) const;
    std::optional<std::pair<size_t, size_t>> search_forward(size_t row, size_t col) const;
    std::optional<std::pair<size_t, size_t>> search_backward(size_t row, size_t col) const;
    // next_place() and previous_place() also give the length of the match. next_allowed() and previous_allowed() search
    // within one line: from a column on, or from a match on that itself may not be allowed.
    std::optional<Matcher::Place> next_place(const LineStore& lines, size_t row, size_t col) const;
    std::optional<Matcher::Place> previous_place(size_t row, size_t col) const;
    std::optional<Matcher::Match> next_allowed(const Matcher::Piece& line, size_t from) const;
    std::optional<Matcher::Match> previous_allowed(const Matcher::Piece& line, Matcher::Match match) const;
    // Sleeps until g_kpe_abort_requested or g_kpe_end_signal is set, or until the terminal has gone.
    static void wait_for_interrupt();
    bool on_last_match() const;  // whether the cursor stands on the match of the last search
    bool find_next(Direction d);

    // --- Substitution: editor/substitute.cpp ---
    void substitute_command(const std::string& args, const Qualifiers& q, bool report);
    void substitute_single(const std::string& replacement, const Qualifiers& q, bool report);
    void replace_and_go_on(const std::string& replacement, const Qualifiers& q, bool report);
    void substitute_global(const std::string& replacement, bool query, bool report);
    void substitute_range(const LineRange& range, const std::string& replacement, const Qualifiers& q, bool report);
    size_t ask_everywhere(const std::string& text);
    void ask_in_rows(const LineRange& range, Substitution& rest);

    // --- Buffers: editor/buffers.cpp ---
    static std::string normalize_buffer_name(std::string name);
    void save_current_buffer_state();
    TextBuffer& named_buffer(const std::string& name);  // name as it was typed; an empty one means MAIN
    TextBuffer& stored_buffer(const std::string& n);    // n is normalized already; made if it is missing
    // After a change of a stored buffer: if name (normalized) is the current buffer, buffer_ becomes a copy of it.
    void show_stored_if_current(const std::string& name);
    void find_buffer(const std::string& name, bool report);
    std::string paste_text_content();
    void set_paste_text(const std::string& text);
    void append_paste_text(const std::string& text);
    void show_buffers(bool report);
    void clear_buffer_command(const std::string& args, bool report);
    void copy_move_command(const std::string& args, bool move, bool report);

    // --- The user's own clipboard: editor/clipboard.cpp ---
    // Asks the terminal to put the text there. Returns false if standard output is no terminal, or if the text is too
    // long; the user is told of that. With SET CLIPBOARD on, CUT and APPEND send the text of PASTE.
    bool send_to_clipboard(std::string_view text);
    void copy_to_clipboard(bool report);  // the select range, or the line of the cursor

    // --- Typed lines: editor/typing.cpp ---
    // The line with text_formfeed_ in place of each form feed.
    std::string expand_formfeed_display(std::string line) const;
    void type_line_at(size_t row, bool brief, int brief_cols) const;
    void type_current_line(bool brief, int brief_cols) const;
    void type_range(const LineRange& range, bool brief, int brief_cols) const;

    // --- Text in and out: editor/transfer.cpp ---
    void print_command(const std::string& args, bool report);
    void write_command(const std::string& args, bool report);
    void include_file_command(const std::string& args, bool report);
    void insert_multiline(bool report);

    // --- Macros: editor/macros.cpp ---
    static std::vector<std::string> split_macro_commands(const std::string& text);
    static std::string join_lines_as_text(const std::vector<std::string>& lines);
    // Reads the commands that follow a DEFINE MACRO without AS, up to END or a blank line.
    std::vector<std::string> read_macro_commands(const std::string& name, bool report);
    void define_macro_command(const std::string& args, bool report);
    bool try_execute_macro(const std::string& name, bool report);
    void show_macros(const std::string& name, bool report);

    // --- Key definitions: editor/key_defs.cpp, screen/defined_keys.cpp ---
    void define_key_command(const std::string& args, bool report);
    std::string normalize_key_spec(const std::string& spec) const;
    std::string key_id_from_input(int key, bool gold) const;
    bool is_defined_key(int key, bool gold) const;
    bool try_defined_key(int key, bool gold);
    void show_key_command(const std::string& filter, bool report);

    // --- Fill: editor/fill.cpp ---
    void fill_command(const std::string& args, bool report);
    void fill_select(const SelSpan& span, bool report);
    void fill_range(const LineRange& range, bool report);

    // --- Transforms: editor/transforms.cpp ---
    void resequence_command(const std::string& args, const Qualifiers& q, bool report);
    void xlate_command(const std::string& args, bool report);
    void retain_command(const std::string& args, bool report);
    void range_command(const std::string& args, bool report);
    void tab_adjust_command(const std::string& args, bool report);
    void chg_case_command(const std::string& args, bool upper, bool report);

    // --- The prompt: editor/prompt.cpp ---
    // Prints the prompt and reads a command from standard input.
    std::optional<std::string> read_command();
    // The names that may stand in front of the cursor: verbs, settings, buffers, macros and files.
    std::optional<Completion> completion(std::string_view before);
    static std::vector<std::string> command_phrases();  // editor/parse.cpp: all spellings but abbreviations
    static std::vector<std::string> setting_phrases();  // editor/settings.cpp: SET and SHOW commands
    // At the end of the session: keeps the commands that were typed on a terminal, unless SET NOHISTORY is on.
    void keep_history();

    // --- Line-mode help: editor/line_help.cpp, editor/verb_help.cpp ---
    void print_line_help(const std::string& topic) const;
    // What a person at a terminal is told of the verb that topic (in upper case) names; nothing if it names none.
    void tell_verb_help(const std::string& topic, Pages& pages) const;
    std::string keys_for(const VerbHelp& row) const;  // as in "KP6, Alt/l"

    // --- Saving and leaving: editor/saving.cpp ---
    static std::string strip_vms_version(const std::string& path);
    std::string resolve_read_path(const std::string& path) const;
    std::string resolve_write_path(const std::string& path) const;
    // Hands the bytes of a file that holds the lines to put, piece by piece: each row with a line break. Under SET RMS
    // FIXED the rows become records of exactly rms_fixed_len_ bytes, each with a line break: an empty row becomes one
    // record of blanks, a long row several records, and blanks fill the last of them. It works in pieces because a
    // record may be far longer than its text. Returns false as soon as put returns false.
    bool apply_rms_lines(const LineStore& lines, const TextForm& form, const KpePut& put) const;
    enum class Written { Done, Failed, Taken };  // Taken: it had to be new, and somebody else made it first
    // Writes the lines to path as text, or as records under SET RMS FIXED. The file always ends with a line break,
    // except that one empty line makes an empty file. After a failure the old file is as it was.
    Written write_lines_file(const std::string& path, const LineStore& lines, const TextForm& form, bool must_be_new);
    // Writes the lines to the file that a write of name uses; path gets its path, also after a failure. If another
    // session takes that version first, the next free one is used. A file that could not be read whole is refused.
    bool save_lines(const LineStore& lines, const TextForm& form, const std::string& name, std::string& path);
    // The same for a buffer. It counts as saved if path belongs to its own file.
    bool save_buffer_to_path(TextBuffer& buf, const std::string& name, std::string& path);
    // Behind the message of a write that failed: tells the user at a terminal why. It tells it on the screen as well.
    void tell_why_unwritten(bool report);
    bool do_save(bool verbose);
    // Notes that filename_ holds these lines, or, if as_it_is is false, something else that was made of them.
    void note_edited_text(const LineStore& lines, bool as_it_is);
    [[noreturn]] void save_and_exit_now(bool show_eob);
    [[noreturn]] void quit_without_saving_now(bool report);
    CommandResult next_file_command(bool verbose);
    CommandResult previous_file_command(bool verbose);
    void walk_to_file(size_t index, bool verbose);

    // --- What a SessionPolicy asks for: editor/policy.cpp ---
    void begin_on_screen();
    void tell_how_to_leave();  // on the message row, until the next key
    void end_first_message();
    void tell_way_back() const;
    // For those who typed how another editor is left.
    void answer_leaving_word();
    void go_to_asked_place();  // in the file that was just read
    TextBuffer::LineEnds line_ends() const {
        return policy_.keeps_line_ends ? TextBuffer::LineEnds::Same : TextBuffer::LineEnds::Plain;
    }
    bool file_is_as_wanted() const;  // whether nothing is lost if MAIN is not saved
    int status_of_leaving() const;   // the exit status, as far as the files decide
    // Saves MAIN to its own file before the session leaves it. path gets the path, also after a failure, and written
    // whether it was written: the policy may leave a file alone that holds the text already.
    bool save_for_leaving(TextBuffer& main_buffer, std::string& path, bool& written);
    bool save_by_key();  // the same, told on the message row
    // Before a key or a command is read, for sessions that never write: tells a user once that the text was changed and
    // that this goes into no file.
    void tell_unsaved_change();
    void save_key();
    void save_and_leave_key();
    void leave_key();

    // --- Rescue: editor/rescue.cpp ---
    // Notes that a file holds the present text of the buffer, which is buffer_ or one of buffers_.
    void note_on_disk(const TextBuffer& buffer);
    // If the edited file looks changed but still holds what was last loaded or saved, remembers how it looks now.
    // Another link, mode or time is no change of the text.
    void overlook_unchanged_text();
    // Whether filename_ is there, if it ever was, and holds these lines as far as this session knows.
    bool holds_edited_text(const LineStore& lines) const;
    const TextBuffer& newest_text(const std::string& name) const;
    // Whether the buffer of this (normalized) name holds another text than was last loaded or saved.
    bool is_only_here(const std::string& name) const;
    // Write the text of one or of every buffer to a rescue file, if it is stored nowhere else. tell_kept() then tells a
    // user at a terminal, and makes sure that the files are on disk.
    void keep_text(const std::string& name);
    void keep_texts();
    void tell_kept();
    // The same after a crash, in a child process. It touches as little as possible.
    static void rescue_after_crash();
    // Prints one line for a person: on standard error if that is a terminal, or on the message line of the screen. A
    // script never sees it.
    void tell_user(const std::string& message);
    // On a terminal, names the buffers whose text an EXIT discards although it is stored nowhere else. PASTE is left
    // out, and so are macros that were defined in one command: people do not want to hear of them at each EXIT.
    void tell_left_behind() const;
    // Ends the process now if a signal has asked for that. While curses has the terminal it does nothing. It is called
    // between commands, where every text is whole.
    void obey_end_signal();

    // --- The recovery log: editor/recovery.cpp ---
    bool wants_recording() const;
    // From now on changes of the file that was loaded are recorded, and the texts of other buffers.
    void begin_recording();
    void record_from(const std::string& path, const FileState& file, const LineStore& text, bool from_file);
    // The file path, which is that of this session, holds the text now; as_it_is: and nothing else, such as records.
    void record_saved(const std::string& path, const FileState& file, const LineStore& text, bool as_it_is);
    // Records what has changed since the last call. It is called before kpe waits for a key or a line, so that whatever
    // the screen shows is in the log.
    void record_changes();
    // Records what the buffer will hold when the lines that are being typed have come to their end.
    void record_ahead(const std::string& name, const TextBuffer& text);
    void commit_record();
    void give_up_recording();  // there is no memory for it
    // The file was read, and holds this text: what is copied from it is not repeated in the log.
    void record_source(const std::string& path, const FileState& file, const LineStore& text);
    bool discards_text() const;  // whether a text, PASTE aside, would be gone if the session ended now
    void end_recording_unsaved();
    void end_recording_rescued();
    enum class Recovery { AtTerminal, On, Off };
    void switch_recovery(Recovery how);
    // tell: the user, if an earlier session has left changes that are in no file
    void look_for_unsaved_changes(bool tell = true);
    // Under a policy that recovers a text: it becomes that of the file, as a change that can be undone. The texts of
    // other buffers come back as well.
    void take_recovered_text();

    // --- Journal: editor/journal.cpp ---
    std::string journal_path() const;
    void append_journal_line(const std::string& line);
    void sync_journal();
    void end_journal(const std::string& reason);  // for good; tells the user the reason unless it is empty
    void try_recover_journal();
    // Removes the journal after a successful EXIT. Lines of an earlier session that were not replayed are copied first.
    void delete_journal_file();
    // Notes a file that this session edits, reads or writes. Such a file is never used or removed as a journal.
    void note_used_file(const std::string& path);
    bool is_used_file(const std::string& path) const;

    // --- Command files: editor/command_files.cpp ---
    std::optional<std::string> resolve_command_file(const std::string& name);
    [[noreturn]] void abort_missing_command_file(const std::string& name);
    // For a file of commands that could not be loaded: tells the user at a terminal why, if it is there.
    void tell_unreadable(const std::string& path);
    void tell_too_large(const TextBuffer& file);  // tells the user if the memory has no room for it
    void run_startup_command_file(const std::string& path);
    void prescan_startup_versioning(const std::string& path);
    static bool file_exists(const std::string& p);  // whether it is a regular file
    static std::string join_path(const std::string& dir, const std::string& name);
    std::optional<std::string> find_startup_file() const;
    void run_command_file(const std::string& path, bool verbose);
    // Runs the lines of file. before_last (may be empty) is called before the last one.
    void run_commands(const TextBuffer& file, bool verbose, const std::function<void()>& before_last = {});

    // --- Screen session and display: screen/loop.cpp, screen/draw.cpp ---
    void screen_mode();
    // Whether a session on the screen can begin. If not, the user is told why.
    bool may_enter_screen();
    // Shows the screen for as long as loop runs. Without memory for it, gives the terminal back and tells the user.
    void run_on_screen(void (Editor::*loop)());
    void screen_loop();
    // Returns the next key. It calls draw before it waits, and again with anew set when everything has to be drawn
    // again. At the end of input it sets input_ended_ and returns ERR.
    int read_key(const std::function<void(bool anew)>& draw);
    int read_key() {
        return read_key([this](bool) { draw_screen(); });
    }
    void draw_screen();     // composes the picture, and paints it on the terminal
    void compose_screen();  // puts all but the cursor into g_shown_rows
    void draw_line(int screen_row, size_t row, std::string_view line, size_t width,
                   const std::optional<SelSpan>& span) const;
    std::string status_line() const;
    std::pair<int, int> cursor_place() const;  // row and column on the screen, zero-based
    void adjust_view();
    long long cursor_x(std::string_view line, long long gutter, int cols) const;
    void show_cursor_cell(std::string_view line, size_t width, size_t gutter);
    void clamp_cursor();
    // Moves a cursor that stands inside a character to its first byte.
    void snap_cursor();
    void ring_bell();

    // --- Keys: screen/keys.cpp ---
    bool handle_screen_key(int key);
    bool handle_modified_key(int key);
    bool handle_plain_key(int key);
    bool run_defined_key(int key, bool gold);
    void repeat_gold_key(int key, int count);
    bool handle_gold_key(int key);
    bool handle_gold_keypad(int key);
    bool handle_keypad_or_text(int key);
    void type_character(std::string bytes);
    void paste_typed(const std::string& text);
    std::string key_debug_name(int key) const;

    // --- Motion: editor/motion.cpp ---
    void move_up();
    void move_down();
    void move_left();
    void move_right();
    void move_char(Direction d);
    void move_word(Direction d);
    void line_move(Direction d);
    void page_down();
    void page_up();
    void section_move(Direction d);
    void go_top();
    void go_bottom();
    void open_line();
    bool is_delim(char c) const;

    // --- Select range: editor/select.cpp ---
    void start_select();
    bool select_active() const;
    std::optional<SelSpan> active_select_span() const;
    void set_error(const std::string& message);
    void select_error(const std::string& message);
    void clear_select();
    void toggle_line_numbers();
    // Removes the text of the select range, puts the cursor at its start, and returns the text. Without a range it
    // leaves an error message and returns nothing. leave_select() brings the cursor into the text, and clears the
    // range.
    std::optional<std::string> remove_select();
    void leave_select();
    void cut_select();
    void append_select();
    void replace_select_with_paste();

    // --- Editing: editor/editing.cpp ---
    void insert_character(const std::string& bytes);  // at the cursor, which moves behind it
    void delete_char_left();
    void delete_char_at_cursor();
    void delete_line();
    void delete_range(const LineRange& range);
    void undelete_line();
    void delete_eol();
    void delete_word();
    void delete_word_left();
    void paste();
    void paste_text(const std::string& text);
    std::string apply_case_mode(std::string text) const;
    void maybe_wrap_line();
    void change_case_char();
    void shift_left_line();
    void shift_right_line();
    void insert_tab_at_cursor();

    // --- Find and substitute keys, prompts: editor/find_keys.cpp, screen/prompts.cpp ---
    void find_again_key();
    void subs_keypad();
    std::string prompt_line(const std::string& prompt);
    std::string prompt_line_dir(const std::string& prompt, std::optional<Direction>* dir);
    // As prompt_line_dir. If leaves is true, Ctrl/Z at the empty prompt is returned as the answer "\032".
    std::string read_prompt(const std::string& prompt, std::optional<Direction>* dir, bool leaves);
    // Whether the next key is Y. Every other one means no, and does nothing else.
    bool ask_by_key(const std::string& question);
    std::optional<int> read_key_to_define(const std::string& message);
    void prompt_find();
    void prompt_insert_literal();
    void command_prompt();
    void interactive_define_key();

    // --- Keypad-less command strings and help page: editor/nokeypad.cpp, screen/help_screen.cpp ---
    bool execute_nokeypad_string(const std::string& cmds, bool echo_errors);
    void nokeypad_mode();
    void nokeypad_loop();
    void show_help_screen();

    // --- Session and files ---
    SessionPolicy policy_;
    bool unsaved_change_told_ = false;         // see tell_unsaved_change
    std::string filename_;                     // resolved path of the file being edited
    std::optional<std::string> command_file_;  // from -command
    bool no_command_ = false;                  // no startup command file at all
    int startup_file_depth_ = 0;               // how deep runs of the file of -command nest
    int command_file_depth_ = 0;               // how deep runs of command files nest
    int command_file_refusals_ = 0;            // how many runs were refused as nested too deeply
    std::optional<std::string> output_file_;   // where EXIT writes MAIN, if not to its own file
    bool read_only_ = false;
    bool recover_ = false;
    std::optional<std::string> journal_override_;  // from -journal
    std::string last_saved_path_;
    bool versioning_ = false;  // ";n" versions on save
    bool rms_fixed_ = false;   // fixed-length records
    int rms_fixed_len_ = 80;
    std::optional<LineRange> sticky_range_;  // set by RANGE
    std::map<char, char> xlate_map_;
    bool file_existed_ = false;
    TextForm file_form_;                    // of filename_
    std::optional<LineStore> edited_text_;  // what filename_ held when it was last read or written, if that is known
    bool walk_failed_ = false;              // NEXT or PREVIOUS could not save the file that they left
    bool begun_on_screen_ = false;
    FileState edited_file_;    // filename_ as it was when it was last read or written
    std::string broken_file_;  // filename_ if it could not be read whole
    size_t lost_pages_told_ = 0;
    // The newest log of an earlier session, and the hash of its text. Once the file holds that text nobody has to be
    // told of the log.
    struct OlderLog {
        std::string path;
        uint64_t text;
    };
    std::optional<OlderLog> older_log_;
    std::string why_unwritten_;     // of the last write that failed
    int interruptible_writes_ = 0;  // WRITE is one, which Ctrl/C ends; a save by EXIT is finished
    bool input_ended_ = false;      // the terminal has gone, or input ended in screen mode

    // --- Buffers ---
    TextBuffer buffer_;                          // the working copy of the current buffer
    std::map<std::string, TextBuffer> buffers_;  // by upper-case name; the current one's entry may lag
    std::string current_buffer_name_ = "MAIN";

    // --- Cursor, view and keypad ---
    size_t cursor_row_ = 0, cursor_col_ = 0, top_line_ = 0, left_col_ = 0;
    bool overstrike_ = false;
    Direction direction_ = Direction::Advance;
    bool gold_pending_ = false, gold_twice_ = false;  // the second: GOLD was pressed once more
    int gold_repeat_count_ = 0;
    bool show_line_numbers_ = false;
    int screen_depth_ = 0;       // how deep sessions on the screen nest: a key or a command may begin another
    bool screen_stale_ = false;  // something may have changed since the screen was drawn

    // --- Search ---
    bool search_exact_ = true;
    bool search_begin_ = false, search_end_ = false;
    bool search_wild_ = true;  // only shown: wildcards always work
    bool search_word_ = false;
    std::string last_search_;
    size_t last_match_len_ = 0;
    bool on_match_ = false;  // a search put the cursor at match_row_, match_col_
    size_t match_row_ = 0, match_col_ = 0;
    std::string match_needle_;
    mutable std::optional<Matcher> matcher_;  // last_search_ compiled; see matcher()

    // --- Deleted text, messages, key debugging ---
    std::string delete_char_buffer_;
    LineStore delete_line_buffer_;  // rows, each standing for its text and "\n"
    std::string delete_word_buffer_;
    std::string message_;
    bool debug_keys_ = false;
    std::string last_key_debug_, last_function_;

    // --- Definitions ---
    std::map<std::string, std::string> key_defs_;  // key id to command
    std::map<std::string, bool> macro_names_;
    std::map<std::string, LineStore> macro_texts_;  // of macros defined in one command: the text as it was defined
    std::vector<std::string> running_macros_;       // innermost last

    // --- Undo ---
    States undo_stack_, redo_stack_;
    bool unit_open_ = false;  // the command or key that runs has put the newest state there
    // Dropped states, freed after painting: freeing one costs as much as a key.
    std::vector<DroppedState> dropped_states_;

    // --- Startup file ---
    std::string startup_file_;
    std::vector<std::string> startup_warnings_;  // what silent runs ignored; the first hundred

    // --- Settings ---
    int tab_width_ = 8;
    bool quiet_ = false, verify_ = false, wrap_ = false;
    bool autorepeat_ = true, repeat_enabled_ = true;
    std::string case_mode_ = "NONE";
    std::string command_set_file_;
    int cursor_top_ = 0, cursor_bottom_ = 0;
    bool fnf_ = true;
    std::string help_name_ = "KPEHELP";
    std::string keypad_mode_ = "KPE";
    std::string num_lock_ = "NONE";
    bool clipboard_ = false;
    int set_lines_ = 0;
    std::string paragraph_mode_ = "NOWPS";
    int screen_width_ = 0;
    bool summary_ = true;
    std::string terminal_type_ = "vt100";
    std::string text_formfeed_ = "^L";
    std::string text_eob_ = "[EOB]";
    bool truncate_ = false;
    bool word_delimiter_on_ = true;
    std::string prompt_ = "*";
    std::string last_set_mode_ = "Line";
    bool history_ = true;
    std::string word_delimiters_ = " \t.,;:!?()[]{}\"'+-*/=<>|\\&#@^%~`";

    // --- The prompt ---
    LineHistory line_history_;

    // --- The file list ---
    std::vector<std::string> all_files_;
    size_t current_file_idx_ = 0;

    // --- Texts that must not be lost ---
    struct Rescued {
        FileHandle file;
        std::string path, message;
    };
    std::map<std::string, LineStore> on_disk_;  // by buffer name: the text that was last loaded or saved
    std::vector<Rescued> rescued_;              // files that the user was not told of yet
    bool lost_some_ = false;                    // a text could not be kept whole
    static Editor* after_crash_;                // the editor whose texts are rescued after a crash
    bool at_terminal_ = false;                  // standard input was a terminal at the start

    // --- The recovery log ---
    SessionRecorder recorder_;
    Recovery recovery_ = Recovery::AtTerminal;

    // --- The journal ---
    JournalFile journal_;  // the journal that lines were appended to last
    IdleWork journal_sync_{[this] { sync_journal(); }};
    std::set<std::string> ended_journals_;  // paths that get no more lines
    FileState replayed_journal_;            // how it looked when all its lines had been repeated
    std::set<std::string> used_files_;      // paths that were edited, read or written; see note_used_file
};
