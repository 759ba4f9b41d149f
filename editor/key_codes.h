#pragma once

// The codes of keys. A key is an int: a byte, a KEY_ code of curses, or one of the codes below for the keys of
// the numeric keypad, which lie above those of curses.

constexpr int KPE_KP0 = 512, KPE_KP1 = 513, KPE_KP2 = 514, KPE_KP3 = 515, KPE_KP4 = 516, KPE_KP5 = 517, KPE_KP6 = 518,
              KPE_KP7 = 519, KPE_KP8 = 520, KPE_KP9 = 521;
constexpr int KPE_KP_MINUS = 522, KPE_KP_COMMA = 523, KPE_KP_PERIOD = 524, KPE_KP_ENTER = 525;

// A bracketed paste; kpe_take_paste() returns its text.
constexpr int KPE_PASTE = 526;
// The Num Lock key, which only some terminals report.
constexpr int KPE_NUM_LOCK = 527;
// Added to the code of a key that was pressed together with Shift, Ctrl or Alt.
constexpr int KPE_SHIFT = 0x10000, KPE_CTRL = 0x20000, KPE_ALT = 0x40000;
// Added to the code point of a character outside of ASCII, which is typed in a UTF-8 locale.
constexpr int KPE_CHARACTER = 0x1000000;
constexpr bool kpe_is_character(int key) { return key >= KPE_CHARACTER; }
constexpr char32_t kpe_code_point(int key) { return static_cast<char32_t>(key - KPE_CHARACTER); }

constexpr int kpe_ctrl(char letter) { return letter - 'A' + 1; }
constexpr int KPE_BACKSPACE = 8, KPE_TAB = 9, KPE_LINEFEED = 10, KPE_RETURN = 13, KPE_ESCAPE = 27, KPE_DELETE = 127;
