#pragma once

// The character set of the user's locale: LC_ALL, LC_CTYPE or LANG, whichever is the first that is set.

// Whether it is UTF-8. A locale that this machine does not know, as one often has it after logging in from another
// machine, is judged by its name. The first call decides for the whole session.
bool kpe_utf8_locale();
// Makes the C library use that character set, or that of the C locale again.
void kpe_enter_user_locale();
void kpe_leave_user_locale();
