#pragma once

#include <QString>
#include <Qt>

class QKeyEvent;

// The global drawing shortcut as stored: a key code in the stored numbering
// (2 is D, 49 Space, 36 Return, 122 F1, ...), a modifier mask with Ctrl 0x1000,
// Alt 0x800, Shift 0x200 and Super 0x100, and the key's name as shown.
struct HotKeyConfig {
    static constexpr quint32 controlKey = 0x1000;
    static constexpr quint32 optionKey = 0x800;
    static constexpr quint32 shiftKey = 0x200;
    static constexpr quint32 cmdKey = 0x100;

    quint32 keyCode = 2;
    quint32 modifiers = controlKey | optionKey;
    QString keyName = QStringLiteral("D");

    // Ctrl+Alt+D.
    static HotKeyConfig defaultShortcut();
    // The shortcut in force, as the settings hold it now ("hkCode", "hkMods", "hkName").
    // A stored number outside 32 bits is fatal.
    static HotKeyConfig current();
    void save() const;
    // "Ctrl+Alt+Shift+Super+" for the modifiers present, then keyName.
    QString display() const;

    // From a key press: the stored key code, the key's name, the modifier mask.
    // (Named "...For" because keyCode and keyName are the fields.)
    static quint32 keyCodeFor(const QKeyEvent& event);
    static QString keyNameFor(const QKeyEvent& event);
    static quint32 carbonModifiers(Qt::KeyboardModifiers modifiers);

    bool operator==(const HotKeyConfig&) const = default;
};
