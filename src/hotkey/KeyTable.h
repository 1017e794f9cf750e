#pragma once

#include <QString>
#include <Qt>
#include <optional>

// The stored key codes and what they mean on this system. Codes below 128 keep
// the numbering the settings file has always used (2 is D, 49 Space, 122 F1, ...)
// and name a key by its place on an ANSI keyboard; each has an X keysym and a
// Qt::Key. Any other key is stored as keysymCodeFlag | its X keysym, which is
// stable across runs and layouts and turns back into the keysym exactly.
class KeyTable {
public:
    static constexpr quint32 keysymCodeFlag = 0x80000000u;

    // The keysym to grab for a stored code; nullopt when the code names no key.
    static std::optional<quint32> keysymForCode(quint32 code);
    // The stored code for a keysym: the table's own code where the keysym (or,
    // for a letter, its lower case, or a keypad key's other level) has one,
    // else keysymCodeFlag | canonical(keysym).
    static quint32 codeForKeysym(quint32 keysym);
    // From Qt's key alone, for events that carry no keysym.
    static std::optional<quint32> codeForQtKey(int key, bool keypad);
    static std::optional<Qt::Key> qtKeyForCode(quint32 code);

    // The names that don't come from a typed character ("Return", "F1", "←", ...);
    // empty for every other code.
    static QString fixedName(quint32 code);

    // The character a keysym types, or empty for control keys, dead keys and
    // keys that type nothing.
    static QString textOf(quint32 keysym);
    // The lower-case form of a letter keysym; anything else unchanged.
    static quint32 lowerCase(quint32 keysym);
    // One keysym per key whatever the keymap calls it: lower case, and the
    // classic keysym rather than its Unicode form (Cyrillic_ve for U+0432).
    static quint32 canonical(quint32 keysym);
    // The keysym that types a Unicode character.
    static quint32 keysymForCharacter(char32_t character);
};
