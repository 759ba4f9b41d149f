#include "editor/key_decoder.h"

#include <gtest/gtest.h>

#include <curses.h>
#include <map>
#include <sstream>

#include "screen/n3_kpe_keymap.h"

namespace {

using Keys = std::vector<int>;

// The keys of the terminal's entry. Those here collide with what other terminals send.
const std::map<std::string, int> ENTRY = {
    {"\033[4~", KEY_SELECT}, {"\033[G", KEY_B2},   {"\033[1;2P", KEY_F(13)}, {"\033[3;5~", KPE_NUM_LOCK + 9},
    {"\033OE", KEY_BEG},     {"\033k1", KEY_F(6)}, {"\033Ok", KPE_KP_MINUS},
};

int code_of(const std::string& bytes) { return ENTRY.contains(bytes) ? ENTRY.at(bytes) : 0; }

int defined(const char* bytes) {
    const auto next = ENTRY.lower_bound(bytes);
    if (next == ENTRY.end() || !next->first.starts_with(bytes)) return OK;
    return next->first == bytes ? next->second : ERR;
}

size_t length_of(int, const std::string& bytes) { return bytes.size(); }

KeyDecoder utf8_decoder() {
    KeyDecoder decoder({defined, length_of, code_of});
    decoder.set_utf8(true);
    return decoder;
}

// All keys; the bytes come one by one, and then no more.
Keys decoded(KeyDecoder& decoder, const std::string& bytes) {
    Keys keys;
    for (const char byte : bytes) {
        decoder.add(byte);
        while (const auto key = decoder.key(/*no_more=*/false)) keys.push_back(*key);
    }
    while (const auto key = decoder.key(/*no_more=*/true)) keys.push_back(*key);
    EXPECT_FALSE(decoder.begun()) << bytes;
    return keys;
}

// The sequences of keys, each without the Escape that it begins with. Behind a bar stand those of the key with the next
// code.
const std::pair<int, const char*> SEQUENCES[] = {
    {KEY_DOWN, "[B OB | [A OA [1A [1;1A [1;65A [1;129A [1;1:2A | [D OD | [C OC | [H OH [1~ [7~"},
    {KEY_DC, "[3~ | [2~ [L"},
    {KEY_NPAGE, "[6~ | [5~"},
    {KEY_BTAB, "[Z [9;2u [27;2;9~"},
    {KEY_END, "[F OF [8~"},
    {KEY_SELECT, "[4~"},
    {KEY_B2, "[G"},
    {KEY_F(1),
     "OP [P [11~ [[A | OQ [Q [12~ [[B [N Oo [57410u | OR [R [13~ [[C Oj [57411u | OS [S [14~ [[D | "
     "[15~ [[E | [17~ k1 | [18~ | [19~ [T | [20~ [U | [21~ [V | [23~ [W | [24~ [X | [25~ [57376u | [26~ | "
     "[28~ | [29~ | [31~ | [32~ | [33~ | [34~ [57383u"},
    {KPE_SHIFT + KEY_DOWN, "[1;2B [b | [1;2A [2A O2A O1;2A [a | [1;2D [d | [1;2C [c"},
    {KPE_CTRL + KEY_DOWN, "[1;5B Ob | [1;5A Oa | [1;5D Od | [1;5C Oc | [1;5H [7^"},
    {KPE_ALT + KEY_UP, "[1;3A [1;9A \033[A \033OA [1;33A"},
    {KPE_CTRL + KPE_SHIFT + KEY_DC, "[3@ [3;6~"},
    {KPE_SHIFT + KEY_F(1), "[1;2P O1;2P [11;2~"},
    {KPE_SHIFT + KEY_DC, "[3;2~ [3$"},
    {KPE_KP0,
     "Op [57399u [57425u [57399;129u | Oq [57400u [57424u | Or [57401u [57420u | Os [57402u [57422u | "
     "Ot [57403u [57417u | Ou [57404u [57427u [E OE | Ov [57405u [57418u | "
     "Ow [57406u [57423u [57406;129;55u | Ox [57407u [57419u | Oy [57408u [57421u | "
     "Om Ok [57412u [57413u | Ol [57416u | On O3~ [57409u [57426u | OM [57414u | [200~ | "
     "[57360u [57360;129u"},
    {KPE_CTRL + KPE_KP7, "O5w [57406;5u"},
    {'=', "OX [57415u"},
    {'a', "[97u [97;;97u [97;1:2;97u [97;65u"},
    {'A', "[97;2u [97:65;2u [97;2;65u [27;2;65~ [97;65;65u"},
    {KPE_ALT + 'A', "A [97;4u [97:65;4u [1092:1060:97;4u"},
    {kpe_ctrl('C'), "[99;5u [99;6u [27;5;99~ [99;133u [1089::99;5u"},
    {0, "[32;5u [50;5u"},
    {KPE_RETURN, "[13u [13;2u [27;5;13~"},
    {KPE_ESCAPE, "[27u"},
    {KPE_DELETE, "[127u [127;5u"},
    {KPE_CHARACTER + 0xe9, "[233u [233;;233u [0;;233u"},
};

TEST(KeyDecoder, EverySequenceIsItsKey) {
    for (const auto& [first, words] : SEQUENCES) {
        std::istringstream in(words);
        int key = first;
        for (std::string word; in >> word;) {
            KeyDecoder decoder = utf8_decoder();
            if (word == "|")
                ++key;
            else
                EXPECT_EQ(decoded(decoder, "\033" + word + "\t"), (Keys{key, KPE_TAB})) << word;
        }
    }
}

struct Other {
    std::string bytes;
    Keys keys;
    bool broken = false;  // whether bytes of it are no character
};

// Other bytes, and sequences that are cut off or no key's.
const Other OTHERS[] = {
    {"\033", {KPE_ESCAPE}},
    {"\033\033", {KPE_ESCAPE, KPE_ESCAPE}},
    {"\033\r", {KPE_ESCAPE, KPE_RETURN}},
    {"\033\033x", {KPE_ESCAPE, KPE_ALT + 'x'}},
    {"\033[", {KPE_ALT + '['}},
    {"\033O\r", {KPE_ALT + 'O', KPE_RETURN}},
    {"\033\xc3\xa9", {KPE_ESCAPE, KPE_CHARACTER + 0xe9}},
    {"\033\033[200~", {KPE_ESCAPE, KPE_PASTE}},
    {"\033[1;5", {}},
    {"\033[1;\033[A", {KEY_UP}},
    {"\033[24;80R\033[99~\033[I\033[<0;1;1M\033O9\033Ozx", {'x'}},
    {"\033[97;1:3u\033[1;1:3A\033[57441u\033[57358u\033[57430u\033[97;9u\033[1089;5u", {}},
    {"\033[0;;104:233:8364u", {'h', KPE_CHARACTER + 0xe9, KPE_CHARACTER + 0x20ac}},
    {"\033[0;;7:55296:1114112:99999999999999999999u", {}},
    {"\033[" + std::string(100000, '1') + "Ax", {'x'}},
    {"\033[?25uq\033[?2027;0$y\033[?62;22cx", {'q', 'x'}},
    {"\xc2\x80\xe6\x97\xa5\xf0\x9f\x98\x80", {KPE_CHARACTER + 0x80, KPE_CHARACTER + 0x65e5, KPE_CHARACTER + 0x1f600}},
    {std::string(1, '\0'), {0}},
    {"\xc3", {}, true},
    {"\xe6\x97x", {'x'}, true},
    {"\x80\xff\xc0", {}, true},
    {"\xed\xa0\x80", {}, true},
    {"\xf5\x80\x80\x80", {}, true},
};

TEST(KeyDecoder, OtherBytes) {
    for (const auto& [bytes, keys, broken] : OTHERS) {
        KeyDecoder decoder = utf8_decoder();
        EXPECT_EQ(decoded(decoder, bytes), keys) << bytes.substr(0, 40);
        EXPECT_EQ(decoder.take_broken(), broken) << bytes.substr(0, 40);
        EXPECT_FALSE(decoder.take_broken());
    }
    KeyDecoder decoder({defined, length_of, code_of});
    EXPECT_EQ(decoded(decoder, "\xc3"), Keys{0xc3}) << "outside of UTF-8 it is a key";
}

TEST(KeyDecoder, AnswersCountUntilTheLastOne) {
    KeyDecoder decoder = utf8_decoder();
    decoded(decoder, "\033[?0u\033[?2027;1$y");
    EXPECT_EQ(decoder.answers(), (TerminalAnswers{.attributes = false, .protocol = true, .joins_clusters = true}));
    KeyDecoder other = utf8_decoder();
    decoded(other, "\033[?62c\033[?0u");
    EXPECT_EQ(other.answers(), (TerminalAnswers{.attributes = true, .protocol = false, .joins_clusters = false}));
}

// In two pieces, cut at each place in turn.
TEST(PasteText, EndsAtItsMarkWhereverItIsCut) {
    const std::string all = "a\r\nb\rc\n\033[201\033\033[201~behind", text = "a\nb\nc\n\033[201\033";
    for (size_t cut = 0; cut <= all.size(); ++cut) {
        PasteText paste;
        size_t taken = paste.add(all.substr(0, cut));
        if (!paste.ended()) taken += paste.add(all.substr(cut));
        EXPECT_EQ(all.substr(taken), "behind");
        EXPECT_EQ(paste.take(), text);
    }
    PasteText endless;
    endless.add("x\033[20");
    EXPECT_EQ(endless.take(), "x\033[20");
}

}  // namespace
