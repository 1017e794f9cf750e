#include "OverlayKeyMap.h"

#include <QList>
#include <QRegularExpression>
#include <optional>
#include <utility>

namespace {

using Action = OverlayCommand::Action;

OverlayCommand make(Action action, Tool tool = Tool::pen, qint64 number = 0, QString text = {}) {
    return {action, tool, number, std::move(text)};
}

// Typed text without control characters and without the private-use range
// some systems report special keys in; what is left may be empty.
QString printableText(const QString& text) {
    QList<char32_t> kept;
    for (char32_t scalar : text.toUcs4()) {
        const bool control = scalar < 0x20 || scalar == 0x7f;
        const bool specialKey = scalar >= 0xf700 && scalar <= 0xf8ff;
        if (!control && !specialKey)
            kept.append(scalar);
    }
    return QString::fromUcs4(kept.constData(), kept.size());
}

// The key's own character, lower-cased, as if Ctrl and Alt were not held
// (Shift still counts, so Shift+1 is "!"): Qt's key() already ignores those
// modifiers and gives letters in upper case.
QString commandCharacters(const KeyPress& press) {
    if (press.key == Qt::Key_Tab)
        return QStringLiteral("\t");
    if (press.key <= 0 || press.key >= Qt::Key_Escape)
        return {};
    const char32_t scalar = static_cast<char32_t>(press.key);
    return QString::fromUcs4(&scalar, 1).toLower();
}

// An optional sign and decimal digits that fit 64 bits, nothing else.
std::optional<qint64> decimalNumber(const QString& text) {
    static const QRegularExpression pattern(QStringLiteral("^[+-]?[0-9]+$"));
    if (!pattern.match(text).hasMatch())
        return std::nullopt;
    bool ok = false;
    const qint64 number = text.toLongLong(&ok, 10);
    return ok ? std::optional(number) : std::nullopt;
}

bool isCommandHeld(const KeyPress& press) {
    return press.modifiers.testFlag(Qt::ControlModifier);
}

OverlayCommand typingCommand(const KeyPress& press) {
    if (press.key == Qt::Key_Return || press.key == Qt::Key_Enter)
        return make(Action::commitText);
    if (press.key == Qt::Key_Backspace)
        return make(Action::deleteCharacter);
    if (isCommandHeld(press))
        return {};
    const QString text = printableText(press.text);
    if (text.isEmpty())
        return {};
    return make(Action::typeText, Tool::pen, 0, text);
}

OverlayCommand drawingCommand(const KeyPress& press) {
    const QString key = commandCharacters(press);
    if (key.isEmpty())
        return {};
    if (isCommandHeld(press))
        return make(key == QLatin1String("z") ? Action::undo : Action::none);
    static const std::pair<QLatin1String, Tool> toolKeys[] = {
        {QLatin1String("p"), Tool::pen},         {QLatin1String("a"), Tool::arrow},
        {QLatin1String("e"), Tool::ellipse},     {QLatin1String("r"), Tool::rect},
        {QLatin1String("h"), Tool::highlighter}, {QLatin1String("t"), Tool::text}};
    for (const auto& [character, tool] : toolKeys)
        if (key == character)
            return make(Action::selectTool, tool);
    static const std::pair<QLatin1String, Action> actionKeys[] = {
        {QLatin1String("c"), Action::clear},
        {QLatin1String("u"), Action::undo},
        {QLatin1String("["), Action::narrower},
        {QLatin1String("]"), Action::wider},
        {QLatin1String("\t"), Action::toggleHintBar}};
    for (const auto& [character, action] : actionKeys)
        if (key == character)
            return make(action);
    if (const auto number = decimalNumber(key))
        return make(Action::selectColor, Tool::pen, *number);
    return {};
}

} // namespace

namespace OverlayKeyMap {

OverlayCommand commandFor(const KeyPress& press, bool typing) {
    if (press.key == Qt::Key_Escape)
        return make(Action::stop);
    return typing ? typingCommand(press) : drawingCommand(press);
}

} // namespace OverlayKeyMap
