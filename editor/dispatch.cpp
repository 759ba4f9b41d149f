#include <algorithm>
#include <array>
#include <ctime>
#include <variant>

#include "editor/kpe.h"
#include "editor/verb_help.h"
#include "system/ascii.h"
#include "system/interrupts.h"
#include "system/report.h"
#include "system/version.h"

namespace {

template <class... Handlers>
struct Overloaded : Handlers... {
    using Handlers::operator()...;
};
template <class... Handlers>
Overloaded(Handlers...) -> Overloaded<Handlers...>;

// The first of them tell what went wrong, and a key held down could make any number.
constexpr size_t MOST_WARNINGS = 100;

// What people type who want to leave or to save and know other editors.
constexpr std::string_view WAYS_OUT[] = {
    "Q",  "QA",   "QUIT", "X",     "XA",     "EXIT", "W",   "WQ",   "WQA",  "ZZ",
    "ZQ", "SAVE", "BYE",  "CLOSE", "LOGOUT", "END",  "ESC", "STOP", "DONE", "LEAVE",
};

// The first word, without what other editors put around it: an escape, a colon, a sign at its end.
bool wants_out(std::string_view typed) {
    constexpr char CTRL_Q = 17, CTRL_X = 24;
    if (typed.find(CTRL_Q) != typed.npos || typed.find(CTRL_X) != typed.npos) return true;
    const auto is_letter = [](char c) { return kpe_is_alpha(c); };
    std::string word(std::find_if(typed.begin(), typed.end(), is_letter), typed.end());
    word.erase(std::find_if_not(word.begin(), word.end(), is_letter), word.end());
    for (char& c : word) c = kpe_to_upper(c);
    return std::find(std::begin(WAYS_OUT), std::end(WAYS_OUT), word) != std::end(WAYS_OUT);
}

}  // namespace

// Every verb but those that dispatch_command has to act on earlier (go-to, UNDO, REDO) or later (macros,
// DEFINE-KEY) and the settings, which have tables of their own.
struct Editor::VerbTable {
    using Handler = std::variant<void (Editor::*)(), void (Editor::*)(bool), CommandResult (Editor::*)(bool),
                                 CommandResult (Editor::*)(const Call&), void (Editor::*)(const std::string&, bool),
                                 void (Editor::*)(const std::string&, const Qualifiers&, bool),
                                 CommandResult (*)(Editor&, const Call&)>;
    struct Row {
        std::string_view verb;
        Handler run;
    };

    static CommandResult type_cursor_line(Editor& e, const Call& c) {
        if (c.report) e.type_current_line(/*brief=*/false, 40);
        return CommandResult::Continue;
    }
    static CommandResult change_mode(Editor& e, const Call& c) {
        e.last_set_mode_ = "Change";
        return e.change_command(c);
    }
    static CommandResult advance(Editor& e, const Call& c) {
        e.set_direction(Direction::Advance, c.report);
        return CommandResult::Continue;
    }
    static CommandResult backup(Editor& e, const Call& c) {
        e.set_direction(Direction::Backup, c.report);
        return CommandResult::Continue;
    }
    static CommandResult undelete_char(Editor& e, const Call&) {
        e.paste_text(e.delete_char_buffer_);
        return CommandResult::Continue;
    }
    static CommandResult undelete_word(Editor& e, const Call&) {
        e.paste_text(e.delete_word_buffer_);
        return CommandResult::Continue;
    }
    static CommandResult date(Editor& e, const Call& c) {
        e.paste_text(current_date_string());
        return type_cursor_line(e, c);
    }
    static CommandResult show_version(Editor&, const Call& c) {
        if (c.report) kpe_say_lines(kpe_version_banner());
        return CommandResult::Continue;
    }
    static CommandResult help(Editor& e, const Call& c) {
        if (e.help_name_ != "KPEHELP") e.note_used_file(e.help_name_);
        if (c.report) e.print_line_help(c.args);
        return CommandResult::Continue;
    }
    static CommandResult copy(Editor& e, const Call& c) {
        e.copy_move_command(c.args, /*move=*/false, c.report);
        return CommandResult::Continue;
    }
    static CommandResult move(Editor& e, const Call& c) {
        e.copy_move_command(c.args, /*move=*/true, c.report);
        return CommandResult::Continue;
    }
    static CommandResult lower(Editor& e, const Call& c) {
        e.chg_case_command(c.args, /*upper=*/false, c.report);
        return CommandResult::Continue;
    }
    static CommandResult raise(Editor& e, const Call& c) {
        e.chg_case_command(c.args, /*upper=*/true, c.report);
        return CommandResult::Continue;
    }
    static CommandResult substitute_all(Editor& e, const Call& c) {
        e.substitute_global(c.args, c.quals.query, c.report);
        return CommandResult::Continue;
    }
    static CommandResult exit(Editor&, const Call&) { return CommandResult::ExitSave; }
    static CommandResult quit(Editor&, const Call&) { return CommandResult::ExitNoSave; }

    // clang-format off
    static constexpr Row ROWS[] = {
        {"TYPECURRENT",     &type_cursor_line},
        {"CHANGE",          &Editor::change_command},
        {"SET-MODE-CHANGE", &change_mode},
        {"EXIT",            &exit},
        {"QUIT",            &quit},
        {"TYPE",            &Editor::type_command},
        {"DELETE",          &Editor::delete_command},
        {"HELP",            &help},
        {"FIND",            &Editor::find_command},
        {"FNDNXT",          &Editor::find_next_command},
        {"TOP",             &Editor::go_top},
        {"BOTTOM",          &Editor::go_bottom},
        {"PASTE",           &Editor::paste},
        {"CUT",             &Editor::cut_select},
        {"APPEND",          &Editor::append_select},
        {"REPLACE",         &Editor::replace_select_with_paste},
        {"SELECT",          &Editor::start_select},
        {"RESET",           &Editor::reset_state},
        {"ADVANCE",         &advance},
        {"BACKUP",          &backup},
        {"DEL-L",           &Editor::delete_line},
        {"UND-L",           &Editor::undelete_line},
        {"DEL-C",           &Editor::delete_char_at_cursor},
        {"UND-C",           &undelete_char},
        {"DEL-W",           &Editor::delete_word},
        {"UND-W",           &undelete_word},
        {"DEL-EOL",         &Editor::delete_eol},
        {"INSERT",          &Editor::insert_command},
        {"TAB",             &Editor::insert_tab_at_cursor},
        {"BELL",            &Editor::ring_bell},
        {"DATE",            &date},
        {"TAB-ADJUST",      &Editor::tab_adjust_command},
        {"XLATE",           &Editor::xlate_command},
        {"RETAIN",          &Editor::retain_command},
        {"RANGE",           &Editor::range_command},
        {"RESEQUENCE",      &Editor::resequence_command},
        {"FILES",           &Editor::show_files},
        {"SHOW-FILES",      &Editor::show_files},
        {"SHOW-BUFFER",     &Editor::show_buffers},
        {"SHOW-VERSION",    &show_version},
        {"CLEAR",           &Editor::clear_buffer_command},
        {"COPY",            &copy},
        {"COPY-CLIPBOARD",  &Editor::copy_to_clipboard},
        {"MOVE",            &move},
        {"INCLUDE",         &Editor::include_file_command},
        {"WRITE",           &Editor::write_command},
        {"PRINT",           &Editor::print_command},
        {"SUBSTITUTE",      &Editor::substitute_command},
        {"SUBSTITUTE-ALL",  &substitute_all},
        {"FILL",            &Editor::fill_command},
        {"SHOW-MACRO",      &Editor::show_macros},
        {"DEFINE-MACRO",    &Editor::define_macro_command},
        {"CHGL",            &lower},
        {"CHGU",            &raise},
        {"NEXT",            &Editor::next_file_command},
        {"PREVIOUS",        &Editor::previous_file_command},
        {"SHOW-KEY",        &Editor::show_key_command},
    };
    // clang-format on

    static constexpr bool all_explained() {
        return std::all_of(std::begin(ROWS), std::end(ROWS), [](const Row& r) { return kpe_is_explained(r.verb); });
    }

    static const Row* row_of(std::string_view verb) {
        static_assert(all_explained(), "HELP has no text for a verb: see KPE_VERB_HELP");
        const auto row = std::find_if(std::begin(ROWS), std::end(ROWS), [&](const Row& r) { return r.verb == verb; });
        return row == std::end(ROWS) ? nullptr : row;
    }

    static CommandResult run(const Row& row, Editor& e, const Call& c) {
        const auto done = CommandResult::Continue;
        return std::visit(
            Overloaded{
                [&](void (Editor::*f)()) { return (e.*f)(), done; },
                [&](void (Editor::*f)(bool)) { return (e.*f)(c.report), done; },
                [&](CommandResult (Editor::*f)(bool)) { return (e.*f)(c.report); },
                [&](CommandResult (Editor::*f)(const Call&)) { return (e.*f)(c); },
                [&](void (Editor::*f)(const std::string&, bool)) { return (e.*f)(c.args, c.report), done; },
                [&](void (Editor::*f)(const std::string&, const Qualifiers&, bool)) {
                    return (e.*f)(c.args, c.quals, c.report), done;
                },
                [&](CommandResult (*f)(Editor&, const Call&)) { return f(e, c); },
            },
            row.run);
    }
};

Editor::CommandResult Editor::execute_command(const std::string& raw, bool report) {
    if (is_comment_or_blank(raw)) return CommandResult::Continue;
    if (g_kpe_end_signal) return CommandResult::Continue;  // the rest of a macro or command file is left out
    std::string command = trim(raw);
    Qualifiers quals;
    // What a SUBSTITUTE searches and inserts is protected: only what follows it may hold qualifiers.
    const size_t tail_pos = substitute_tail_pos(command);
    if (tail_pos != std::string::npos) {
        std::string tail = command.substr(tail_pos);
        quals = extract_qualifiers(tail);
        command = command.substr(0, tail_pos) + tail;
    } else {
        quals = extract_qualifiers(command);
    }
    const CommandResult result = dispatch_command(command, quals, report);
    if (quals.save && result == CommandResult::Continue) do_save(report);
    return result;
}

Editor::CommandResult Editor::dispatch_command(const std::string& cleaned, const Qualifiers& quals, bool report) {
    const ParsedCommand command = parse_command(cleaned);
    if (quals.notype) report = false;
    const std::string& verb = command.verb;
    if (verb == "GOTO-LINE") return goto_line_command(command.args, report);
    if (verb.empty()) return CommandResult::Continue;
    if (verb == "UNDO" || verb == "REDO") {
        verb == "UNDO" ? undo_last(report) : redo_last(report);
        return CommandResult::Continue;
    }
    if (command_changes_text_or_buffers(verb)) {
        if (read_only_) {
            kpe_complain(report, "Buffer is read-only");
            return CommandResult::Error;
        }
        begin_undo_unit();
    }
    if (const VerbTable::Row* row = VerbTable::row_of(verb)) {
        return VerbTable::run(*row, *this, {command.args, quals, report});
    }
    if (setting_command(verb, command.args, report)) return CommandResult::Continue;
    if (try_execute_macro(verb, report)) return CommandResult::Continue;
    if (verb == "DEFINE-KEY") {
        define_key_command(command.args, report);
        return CommandResult::Continue;
    }
    kpe_complain(report, "Unrecognized command: " + command.original);
    if (report) tell_way_out(command.original);
    if (!report && startup_warnings_.size() < MOST_WARNINGS)
        startup_warnings_.push_back("Ignored command: " + command.original);
    return CommandResult::Error;
}

void Editor::tell_way_out(const std::string& typed) {
    if (!wants_out(typed)) return;
    if (policy_.leaving_keys)
        answer_leaving_word();
    else
        tell_user("To leave: EXIT saves, QUIT does not. To save and go on: TYPE /SAVE");
}

Editor::CommandResult Editor::goto_line_command(const std::string& args, bool report) {
    const auto number = kpe_stoul(args);
    if (!number) {
        kpe_complain(report, "Invalid line number: " + args);
        return CommandResult::Error;
    }
    if (*number != 0) {
        cursor_row_ = std::min(*number - 1, buffer_.line_count() - 1);
        cursor_col_ = buffer_.length(cursor_row_);
    }
    if (report) type_current_line(/*brief=*/false, 40);
    return CommandResult::Continue;
}

Editor::CommandResult Editor::change_command(const Call& call) {
    if (call.args.starts_with(';')) {
        execute_nokeypad_string(trim(call.args.substr(1)), call.report);
        return CommandResult::Continue;
    }
    // A startup file asks for it in vain: the session begins on the screen, and the place to show is not known yet.
    if (policy_.begins_on_screen && !begun_on_screen_ && command_file_depth_ > 0) return CommandResult::Continue;
    if (keypad_mode_ != "NOKEYPAD") return CommandResult::EnterScreenMode;
    append_journal_line("CHANGE");
    nokeypad_mode();
    append_journal_line("! left CHANGE (nokeypad)");
    return CommandResult::Continue;
}

void Editor::type_command(const std::string& args, const Qualifiers& q, bool report) {
    if (!report) return;
    const AbortGuard guard;
    if (!args.empty()) {
        if (is_abbrev(upper(strip_qualifiers_for_range(args)), "END", 1)) {
            kpe_say(true, text_eob_);
        } else if (const auto range = parse_line_range(args)) {
            type_range(*range, q.brief, q.brief_cols);
        } else {
            kpe_complain(true, "Invalid range: " + args);
        }
    } else if (sticky_range_) {
        type_range(*sticky_range_, q.brief, q.brief_cols);
    } else {
        type_current_line(q.brief, q.brief_cols);
    }
    check_abort(report);
}

Editor::CommandResult Editor::delete_command(const Call& call) {
    std::optional<LineRange> range = LineRange{cursor_row_, cursor_row_};
    if (!call.args.empty()) {
        range = parse_line_range(call.args);
    } else if (sticky_range_) {
        range = sticky_range_;
    }
    if (!range) {
        kpe_complain(call.report, "Invalid range: " + call.args);
        return CommandResult::Error;
    }
    delete_range(*range);
    return CommandResult::Continue;
}

void Editor::find_command(const std::string& args, const Qualifiers& q, bool report) {
    const AbortGuard guard;
    if (args.starts_with('=')) {
        find_buffer(args.substr(1), report);
        return;
    }
    const std::string text = strip_optional_quotes(args);
    if (!text.empty()) last_search_ = text;
    const bool found = find_next(direction_);
    if (check_abort(report) || !report) return;
    if (!found) {
        kpe_say(true, message_);
    } else if (q.brief) {
        kpe_say(true, std::to_string(cursor_row_ + 1) + " " + last_search_);
    } else {
        type_current_line(/*brief=*/false, 40);
    }
}

void Editor::find_next_command(bool report) {
    const AbortGuard guard;
    const bool found = find_next(direction_);
    if (check_abort(report) || !report) return;
    if (found) {
        type_current_line(/*brief=*/false, 40);
    } else {
        kpe_say(true, message_);
    }
}

// INSERT "" inserts nothing; only a bare INSERT reads lines.
void Editor::insert_command(const std::string& args, bool report) {
    if (args.empty()) {
        insert_multiline(report);
    } else {
        paste_text(strip_optional_quotes(args));
    }
}

void Editor::set_direction(Direction d, bool report) {
    direction_ = d;
    message_ = d == Direction::Advance ? "Direction: ADVANCE" : "Direction: BACKUP";
    kpe_say(report, message_);
}

void Editor::show_files(bool report) {
    if (!report) return;
    kpe_say(true, "Input File: " + filename_);
    kpe_say(true, "Output File: " + output_file_.value_or(filename_));
    if (all_files_.empty()) return;
    kpe_print("Files:");
    for (size_t i = 0; i < all_files_.size(); ++i) {
        kpe_print(i == current_file_idx_ ? " *" : " ");
        kpe_print(all_files_[i]);
    }
    kpe_end_line();
}

std::string Editor::current_date_string() {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    std::array<char, 64> text{};
    const size_t size = std::strftime(text.data(), text.size(), "%d-%b-%Y %H:%M:%S", &local);
    return {text.data(), size};
}
