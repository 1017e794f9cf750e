#include "KeyTable.h"

#include <QChar>
#include <QHash>
#include <X11/keysym.h>
#include <array>

namespace {

struct KeyEntry {
    quint32 code;
    quint32 keysym;
    Qt::Key qtKey;
    bool keypad = false;
    // A keypad key types a digit with Num Lock on and moves the cursor without.
    quint32 otherKeysym = 0;
    Qt::Key otherQtKey = Qt::Key_unknown;
};

// clang-format off
constexpr std::array keyEntries = {
    KeyEntry{0, XK_a, Qt::Key_A},            KeyEntry{1, XK_s, Qt::Key_S},
    KeyEntry{2, XK_d, Qt::Key_D},            KeyEntry{3, XK_f, Qt::Key_F},
    KeyEntry{4, XK_h, Qt::Key_H},            KeyEntry{5, XK_g, Qt::Key_G},
    KeyEntry{6, XK_z, Qt::Key_Z},            KeyEntry{7, XK_x, Qt::Key_X},
    KeyEntry{8, XK_c, Qt::Key_C},            KeyEntry{9, XK_v, Qt::Key_V},
    KeyEntry{11, XK_b, Qt::Key_B},           KeyEntry{12, XK_q, Qt::Key_Q},
    KeyEntry{13, XK_w, Qt::Key_W},           KeyEntry{14, XK_e, Qt::Key_E},
    KeyEntry{15, XK_r, Qt::Key_R},           KeyEntry{16, XK_y, Qt::Key_Y},
    KeyEntry{17, XK_t, Qt::Key_T},           KeyEntry{18, XK_1, Qt::Key_1},
    KeyEntry{19, XK_2, Qt::Key_2},           KeyEntry{20, XK_3, Qt::Key_3},
    KeyEntry{21, XK_4, Qt::Key_4},           KeyEntry{22, XK_6, Qt::Key_6},
    KeyEntry{23, XK_5, Qt::Key_5},           KeyEntry{24, XK_equal, Qt::Key_Equal},
    KeyEntry{25, XK_9, Qt::Key_9},           KeyEntry{26, XK_7, Qt::Key_7},
    KeyEntry{27, XK_minus, Qt::Key_Minus},   KeyEntry{28, XK_8, Qt::Key_8},
    KeyEntry{29, XK_0, Qt::Key_0},           KeyEntry{30, XK_bracketright, Qt::Key_BracketRight},
    KeyEntry{31, XK_o, Qt::Key_O},           KeyEntry{32, XK_u, Qt::Key_U},
    KeyEntry{33, XK_bracketleft, Qt::Key_BracketLeft},
    KeyEntry{34, XK_i, Qt::Key_I},           KeyEntry{35, XK_p, Qt::Key_P},
    KeyEntry{36, XK_Return, Qt::Key_Return}, KeyEntry{37, XK_l, Qt::Key_L},
    KeyEntry{38, XK_j, Qt::Key_J},           KeyEntry{39, XK_apostrophe, Qt::Key_Apostrophe},
    KeyEntry{40, XK_k, Qt::Key_K},           KeyEntry{41, XK_semicolon, Qt::Key_Semicolon},
    KeyEntry{42, XK_backslash, Qt::Key_Backslash},
    KeyEntry{43, XK_comma, Qt::Key_Comma},   KeyEntry{44, XK_slash, Qt::Key_Slash},
    KeyEntry{45, XK_n, Qt::Key_N},           KeyEntry{46, XK_m, Qt::Key_M},
    KeyEntry{47, XK_period, Qt::Key_Period}, KeyEntry{48, XK_Tab, Qt::Key_Tab},
    KeyEntry{49, XK_space, Qt::Key_Space},   KeyEntry{50, XK_grave, Qt::Key_QuoteLeft},
    KeyEntry{51, XK_BackSpace, Qt::Key_Backspace},
    KeyEntry{53, XK_Escape, Qt::Key_Escape},
    KeyEntry{64, XK_F17, Qt::Key_F17},
    KeyEntry{65, XK_KP_Decimal, Qt::Key_Period, true, XK_KP_Delete, Qt::Key_Delete},
    KeyEntry{67, XK_KP_Multiply, Qt::Key_Asterisk, true},
    KeyEntry{69, XK_KP_Add, Qt::Key_Plus, true},
    // The keypad's Clear key sits where PC keyboards have Num Lock.
    KeyEntry{71, XK_Num_Lock, Qt::Key_NumLock},
    KeyEntry{75, XK_KP_Divide, Qt::Key_Slash, true},
    KeyEntry{76, XK_KP_Enter, Qt::Key_Enter, true},
    KeyEntry{78, XK_KP_Subtract, Qt::Key_Minus, true},
    KeyEntry{79, XK_F18, Qt::Key_F18},       KeyEntry{80, XK_F19, Qt::Key_F19},
    KeyEntry{81, XK_KP_Equal, Qt::Key_Equal, true},
    KeyEntry{82, XK_KP_0, Qt::Key_0, true, XK_KP_Insert, Qt::Key_Insert},
    KeyEntry{83, XK_KP_1, Qt::Key_1, true, XK_KP_End, Qt::Key_End},
    KeyEntry{84, XK_KP_2, Qt::Key_2, true, XK_KP_Down, Qt::Key_Down},
    KeyEntry{85, XK_KP_3, Qt::Key_3, true, XK_KP_Next, Qt::Key_PageDown},
    KeyEntry{86, XK_KP_4, Qt::Key_4, true, XK_KP_Left, Qt::Key_Left},
    KeyEntry{87, XK_KP_5, Qt::Key_5, true, XK_KP_Begin, Qt::Key_Clear},
    KeyEntry{88, XK_KP_6, Qt::Key_6, true, XK_KP_Right, Qt::Key_Right},
    KeyEntry{89, XK_KP_7, Qt::Key_7, true, XK_KP_Home, Qt::Key_Home},
    KeyEntry{90, XK_F20, Qt::Key_F20},
    KeyEntry{91, XK_KP_8, Qt::Key_8, true, XK_KP_Up, Qt::Key_Up},
    KeyEntry{92, XK_KP_9, Qt::Key_9, true, XK_KP_Prior, Qt::Key_PageUp},
    KeyEntry{96, XK_F5, Qt::Key_F5},         KeyEntry{97, XK_F6, Qt::Key_F6},
    KeyEntry{98, XK_F7, Qt::Key_F7},         KeyEntry{99, XK_F3, Qt::Key_F3},
    KeyEntry{100, XK_F8, Qt::Key_F8},        KeyEntry{101, XK_F9, Qt::Key_F9},
    KeyEntry{103, XK_F11, Qt::Key_F11},      KeyEntry{105, XK_F13, Qt::Key_F13},
    KeyEntry{106, XK_F16, Qt::Key_F16},      KeyEntry{107, XK_F14, Qt::Key_F14},
    KeyEntry{109, XK_F10, Qt::Key_F10},      KeyEntry{111, XK_F12, Qt::Key_F12},
    KeyEntry{113, XK_F15, Qt::Key_F15},
    // The Help key sits where PC keyboards have Insert.
    KeyEntry{114, XK_Insert, Qt::Key_Insert},
    KeyEntry{115, XK_Home, Qt::Key_Home},    KeyEntry{116, XK_Prior, Qt::Key_PageUp},
    KeyEntry{117, XK_Delete, Qt::Key_Delete},
    KeyEntry{118, XK_F4, Qt::Key_F4},        KeyEntry{119, XK_End, Qt::Key_End},
    KeyEntry{120, XK_F2, Qt::Key_F2},        KeyEntry{121, XK_Next, Qt::Key_PageDown},
    KeyEntry{122, XK_F1, Qt::Key_F1},
    KeyEntry{123, XK_Left, Qt::Key_Left},    KeyEntry{124, XK_Right, Qt::Key_Right},
    KeyEntry{125, XK_Down, Qt::Key_Down},    KeyEntry{126, XK_Up, Qt::Key_Up},
};

struct FixedName {
    quint32 code;
    const char16_t* name;
};

constexpr std::array fixedNames = {
    FixedName{36, u"Return"}, FixedName{48, u"Tab"},  FixedName{49, u"Space"},
    FixedName{51, u"Delete"}, FixedName{122, u"F1"},  FixedName{120, u"F2"},
    FixedName{99, u"F3"},     FixedName{118, u"F4"},  FixedName{96, u"F5"},
    FixedName{97, u"F6"},     FixedName{98, u"F7"},   FixedName{100, u"F8"},
    FixedName{101, u"F9"},    FixedName{109, u"F10"}, FixedName{103, u"F11"},
    FixedName{111, u"F12"},   FixedName{123, u"\u2190"}, FixedName{124, u"\u2192"},
    FixedName{125, u"\u2193"}, FixedName{126, u"\u2191"},
};

struct KeysymCharacter {
    quint32 keysym;
    char32_t character;
};

// The keysyms from before Unicode keysyms existed (Latin-2, Cyrillic, Greek,
// Kana, ...), generated from the X11 protocol headers at configure time.
constexpr KeysymCharacter legacyKeysyms[] = {
#include "KeysymUnicodeTable.inc"
};
// clang-format on

constexpr quint32 unicodeKeysymBase = 0x01000000;

const KeyEntry* entryForCode(quint32 code) {
    for (const KeyEntry& entry : keyEntries)
        if (entry.code == code)
            return &entry;
    return nullptr;
}

const QHash<quint32, char32_t>& legacyCharacters() {
    static const QHash<quint32, char32_t> table = [] {
        QHash<quint32, char32_t> map;
        for (const KeysymCharacter& entry : legacyKeysyms)
            if (!map.contains(entry.keysym))
                map.insert(entry.keysym, entry.character);
        return map;
    }();
    return table;
}

const QHash<char32_t, quint32>& legacyKeysymsByCharacter() {
    static const QHash<char32_t, quint32> table = [] {
        QHash<char32_t, quint32> map;
        for (const KeysymCharacter& entry : legacyKeysyms) {
            const bool latin1 = entry.keysym < 0x100;
            const bool unicode = entry.keysym >= unicodeKeysymBase;
            if (latin1 || unicode)
                continue;
            auto existing = map.find(entry.character);
            if (existing == map.end() || entry.keysym < *existing)
                map.insert(entry.character, entry.keysym);
        }
        return map;
    }();
    return table;
}

bool isLatin1Character(quint32 value) {
    return (value >= 0x20 && value <= 0x7e) || (value >= 0xa0 && value <= 0xff);
}

// The character a keysym stands for, printable or not; 0 for none.
char32_t characterOf(quint32 keysym) {
    if (isLatin1Character(keysym))
        return keysym;
    if (keysym >= unicodeKeysymBase + 0x20 && keysym <= unicodeKeysymBase + 0x10ffff)
        return keysym - unicodeKeysymBase;
    if (keysym == XK_KP_Space)
        return ' ';
    // The keypad's characters sit at their ASCII codes above XK_KP_Space.
    if ((keysym >= XK_KP_Multiply && keysym <= XK_KP_9) || keysym == XK_KP_Equal)
        return keysym - XK_KP_Space;
    return legacyCharacters().value(keysym, 0);
}

bool isShowable(char32_t character) {
    if (character == 0 || character > 0x10ffff)
        return false;
    switch (QChar::category(character)) {
    case QChar::Other_Control:
    case QChar::Other_Format:
    case QChar::Other_Surrogate:
    case QChar::Other_PrivateUse:
    case QChar::Other_NotAssigned:
    case QChar::Mark_NonSpacing:
    case QChar::Separator_Space:
    case QChar::Separator_Line:
    case QChar::Separator_Paragraph:
        return false;
    default:
        return true;
    }
}

} // namespace

std::optional<quint32> KeyTable::keysymForCode(quint32 code) {
    if (code & keysymCodeFlag) {
        const quint32 keysym = code & ~keysymCodeFlag;
        if (keysym == 0)
            return std::nullopt;
        return keysym;
    }
    if (const KeyEntry* entry = entryForCode(code))
        return entry->keysym;
    return std::nullopt;
}

quint32 KeyTable::codeForKeysym(quint32 keysym) {
    const quint32 key = canonical(keysym);
    for (const KeyEntry& entry : keyEntries)
        if (entry.keysym == key || (entry.otherKeysym != 0 && entry.otherKeysym == key))
            return entry.code;
    return keysymCodeFlag | (key & ~keysymCodeFlag);
}

std::optional<quint32> KeyTable::codeForQtKey(int key, bool keypad) {
    for (const KeyEntry& entry : keyEntries) {
        if (entry.keypad != keypad)
            continue;
        if (entry.qtKey == key || (entry.otherKeysym != 0 && entry.otherQtKey == key))
            return entry.code;
    }
    return std::nullopt;
}

std::optional<Qt::Key> KeyTable::qtKeyForCode(quint32 code) {
    if (const KeyEntry* entry = entryForCode(code))
        return entry->qtKey;
    return std::nullopt;
}

QString KeyTable::fixedName(quint32 code) {
    for (const FixedName& fixed : fixedNames)
        if (fixed.code == code)
            return QString::fromUtf16(fixed.name);
    return {};
}

QString KeyTable::textOf(quint32 keysym) {
    const char32_t character = characterOf(keysym);
    if (!isShowable(character))
        return {};
    return QString::fromUcs4(&character, 1);
}

quint32 KeyTable::lowerCase(quint32 keysym) {
    const char32_t character = characterOf(keysym);
    if (character == 0)
        return keysym;
    const char32_t lower = QChar::toLower(character);
    if (lower == character)
        return keysym;
    return keysymForCharacter(lower);
}

quint32 KeyTable::canonical(quint32 keysym) {
    const quint32 lower = lowerCase(keysym);
    if (lower >= unicodeKeysymBase && lower <= unicodeKeysymBase + 0x10ffff)
        return keysymForCharacter(lower - unicodeKeysymBase);
    return lower;
}

quint32 KeyTable::keysymForCharacter(char32_t character) {
    if (isLatin1Character(character))
        return character;
    if (const quint32 legacy = legacyKeysymsByCharacter().value(character, 0))
        return legacy;
    return unicodeKeysymBase + character;
}
