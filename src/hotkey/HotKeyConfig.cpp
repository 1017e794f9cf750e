#include "HotKeyConfig.h"

#include "Fatal.h"
#include "HotKeyManager.h"
#include "KeyTable.h"
#include "Settings.h"

#include <QCoreApplication>
#include <QKeyEvent>
#include <QRegularExpression>
#include <cstdio>

namespace {

constexpr qint64 largestStoredNumber = 0xFFFFFFFFLL;

[[noreturn]] void failOutOfRange(Settings::Key key, const QString& value) {
    fatalError(QStringLiteral("the value %1 of \"%2\" in %3 is outside 0...4294967295")
                   .arg(value, Settings::name(key), Settings::shared().fileName()));
}

// A stored whole number as 32 bits; nullopt when the value is no number at all,
// which the settings report. A number that doesn't fit was not written by us.
std::optional<quint32> storedNumber(Settings::Key key, std::optional<qint64> value) {
    if (value) {
        if (*value < 0 || *value > largestStoredNumber)
            failOutOfRange(key, QString::number(*value));
        return static_cast<quint32>(*value);
    }
    // Too long even for 64 bits.
    static const QRegularExpression wholeNumber(QStringLiteral("^[+-]?[0-9]+$"));
    const QString text = Settings::shared().writtenValue(key).trimmed();
    if (wholeNumber.match(text).hasMatch())
        failOutOfRange(key, text);
    return std::nullopt;
}

void warnUnreadableShortcut() {
    static bool warned = false;
    if (warned)
        return;
    warned = true;
    std::fprintf(stderr,
                 "Quillery: the drawing shortcut in %s is unreadable; using Ctrl+Alt+D until "
                 "a new one is set\n",
                 Settings::shared().fileName().toLocal8Bit().constData());
}

// The keysyms behind a key press. The stored code comes from what the key
// types unshifted in the first layout, so that it names the physical key
// whatever layout is in use when the shortcut is pressed; the name comes from
// what it types unshifted in the layout in use, as the user sees it.
struct PressedKeysyms {
    quint32 forCode = 0;
    quint32 forName = 0;
};

PressedKeysyms pressedKeysyms(const QKeyEvent& event) {
    const quint32 typed = event.nativeVirtualKey();
    if (typed == 0)
        return {};
    const QList<quint32> columns = HotKeyManager::shared().keysymsOfKey(event.nativeScanCode());
    const qsizetype column = columns.indexOf(typed);
    if (column < 0)
        return {KeyTable::lowerCase(typed), KeyTable::lowerCase(typed)};
    const quint32 firstLayout = columns.first() != 0 ? columns.first() : typed;
    const quint32 unshifted = columns.at(column & ~1) != 0 ? columns.at(column & ~1) : typed;
    return {firstLayout, unshifted};
}

// Events made by a program may carry no keysym; Qt's key is the best there is.
quint32 codeForQtEvent(const QKeyEvent& event) {
    const bool keypad = event.modifiers().testFlag(Qt::KeypadModifier);
    if (const std::optional<quint32> code = KeyTable::codeForQtKey(event.key(), keypad))
        return *code;
    const bool characterKey = event.key() > 0 && event.key() < Qt::Key_Escape;
    if (characterKey)
        return KeyTable::codeForKeysym(
            KeyTable::keysymForCharacter(static_cast<char32_t>(event.key())));
    return KeyTable::keysymCodeFlag; // no key at all: never registers
}

} // namespace

HotKeyConfig HotKeyConfig::defaultShortcut() {
    return HotKeyConfig{};
}

HotKeyConfig HotKeyConfig::current() {
    const Settings& settings = Settings::shared();
    if (!settings.contains(Settings::Key::hotKeyCode))
        return defaultShortcut();
    const std::optional<quint32> code =
        storedNumber(Settings::Key::hotKeyCode, settings.hotKeyCode());
    const std::optional<quint32> modifiers =
        settings.contains(Settings::Key::hotKeyModifiers)
            ? storedNumber(Settings::Key::hotKeyModifiers, settings.hotKeyModifiers())
            : 0u;
    // Half a shortcut could be a bare key taken from every program.
    if (!code || !modifiers) {
        warnUnreadableShortcut();
        return defaultShortcut();
    }
    HotKeyConfig config;
    config.keyCode = *code;
    config.modifiers = *modifiers;
    config.keyName = settings.hotKeyName().value_or(QStringLiteral("?"));
    return config;
}

void HotKeyConfig::save() const {
    Settings::shared().setHotKey(keyCode, modifiers, keyName);
}

// As Qt writes a key sequence for the desktop, with the name the desktops give
// the logo key.
QString HotKeyConfig::display() const {
    static const std::pair<quint32, const char*> names[] = {
        {controlKey, QT_TRANSLATE_NOOP("HotKeyConfig", "Ctrl")},
        {optionKey, QT_TRANSLATE_NOOP("HotKeyConfig", "Alt")},
        {shiftKey, QT_TRANSLATE_NOOP("HotKeyConfig", "Shift")},
        {cmdKey, QT_TRANSLATE_NOOP("HotKeyConfig", "Super")},
    };
    QStringList parts;
    for (const auto& [bit, name] : names)
        if (modifiers & bit)
            parts << QCoreApplication::translate("HotKeyConfig", name);
    parts << keyName;
    return parts.join(u'+');
}

quint32 HotKeyConfig::keyCodeFor(const QKeyEvent& event) {
    if (const quint32 keysym = pressedKeysyms(event).forCode)
        return KeyTable::codeForKeysym(keysym);
    return codeForQtEvent(event);
}

QString HotKeyConfig::keyNameFor(const QKeyEvent& event) {
    const quint32 code = keyCodeFor(event);
    const QString fixed = KeyTable::fixedName(code);
    if (!fixed.isEmpty())
        return fixed;
    QString text = KeyTable::textOf(pressedKeysyms(event).forName);
    // A keypad key without Num Lock types nothing, but is still its digit.
    if (text.isEmpty())
        if (const std::optional<quint32> keysym = KeyTable::keysymForCode(code))
            text = KeyTable::textOf(*keysym);
    if (!text.isEmpty())
        return text.toUpper();
    return QStringLiteral("Key ") + QString::number(code);
}

quint32 HotKeyConfig::carbonModifiers(Qt::KeyboardModifiers modifiers) {
    quint32 mask = 0;
    if (modifiers & Qt::ControlModifier)
        mask |= controlKey;
    if (modifiers & Qt::AltModifier)
        mask |= optionKey;
    if (modifiers & Qt::ShiftModifier)
        mask |= shiftKey;
    if (modifiers & Qt::MetaModifier)
        mask |= cmdKey;
    return mask;
}
