#include "Settings.h"

#include "Fatal.h"

#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>
#include <QSet>
#include <QSettings>
#include <cstdio>
#include <iterator>

namespace {

enum class Type { number, boolean, wholeNumber, text };

struct Declaration {
    Settings::Key key;
    const char* name;
    Type type;
    QVariant defaultValue; // invalid: none, the reader decides
};

// Every setting, once. Names and stored formats are those earlier versions wrote.
const Declaration table[] = {
    {Settings::Key::fadeSeconds, "fadeSeconds", Type::number, 4.0},
    {Settings::Key::hudVisible, "hudVisible", Type::boolean, true},
    {Settings::Key::didShowWelcome, "didShowWelcome", Type::boolean, false},
    {Settings::Key::hotKeyCode, "hkCode", Type::wholeNumber, {}},
    {Settings::Key::hotKeyModifiers, "hkMods", Type::wholeNumber, {}},
    {Settings::Key::hotKeyName, "hkName", Type::text, {}},
};

const Declaration& declaration(Settings::Key key) {
    for (const Declaration& entry : table)
        if (entry.key == key)
            return entry;
    fatalError(QStringLiteral("setting %1 is not declared").arg(int(key)));
}

void requireType(const Declaration& entry, Type type) {
    if (entry.type != type)
        fatalError(QStringLiteral("setting \"%1\" read as another type").arg(entry.name));
}

QSettings openSettings() {
    return QSettings(QSettings::NativeFormat, QSettings::UserScope, QStringLiteral("Quillery"),
                     QStringLiteral("Quillery"));
}

// A value as the user wrote it: an unquoted comma in the file makes a list.
QString writtenForm(const QVariant& value) {
    if (value.typeId() == QMetaType::QStringList)
        return value.toStringList().join(QStringLiteral(", "));
    return value.toString();
}

bool isList(const QVariant& value) {
    return value.typeId() == QMetaType::QStringList;
}

bool isDecimalText(const QString& text) {
    static const QRegularExpression decimal(
        QStringLiteral("^[+-]?([0-9]+\\.?[0-9]*|\\.[0-9]+)([eE][+-]?[0-9]+)?$"));
    return decimal.match(text).hasMatch();
}

std::optional<double> parseDouble(const QVariant& value) {
    if (value.typeId() == QMetaType::Double || value.typeId() == QMetaType::Int ||
        value.typeId() == QMetaType::LongLong)
        return value.toDouble();
    if (isList(value))
        return std::nullopt;
    bool ok = false;
    const QString text = value.toString().trimmed();
    const double number = text.toDouble(&ok);
    // A number beyond a double's range reads as infinity (or zero), as it is:
    // a number, just one that the program may not accept.
    if (ok || isDecimalText(text))
        return number;
    return std::nullopt;
}

std::optional<bool> parseBool(const QVariant& value) {
    if (value.typeId() == QMetaType::Bool)
        return value.toBool();
    const QString text = value.toString().trimmed().toLower();
    if (text == QLatin1String("true") || text == QLatin1String("1") || text == QLatin1String("yes"))
        return true;
    if (text == QLatin1String("false") || text == QLatin1String("0") || text == QLatin1String("no"))
        return false;
    return std::nullopt;
}

std::optional<qint64> parseInteger(const QVariant& value) {
    if (isList(value))
        return std::nullopt;
    bool ok = false;
    const qint64 number = value.toString().trimmed().toLongLong(&ok);
    if (ok)
        return number;
    return std::nullopt;
}

std::optional<QString> parseText(const QVariant& value) {
    if (isList(value))
        return std::nullopt;
    return value.toString();
}

bool isWholeNumberText(const QVariant& value) {
    static const QRegularExpression whole(QStringLiteral("^[+-]?[0-9]+$"));
    return !isList(value) && whole.match(value.toString().trimmed()).hasMatch();
}

void warnOnce(const QString& key, const QString& value, const QString& file) {
    static QSet<QString> warned;
    const QString what = key + QLatin1Char('=') + value;
    if (warned.contains(what))
        return;
    warned.insert(what);
    std::fprintf(stderr, "Quillery: ignoring the invalid value \"%s\" of \"%s\" in %s\n",
                 value.toLocal8Bit().constData(), key.toLocal8Bit().constData(),
                 file.toLocal8Bit().constData());
}

// A typed read: the stored value if it parses, else the default, else nothing.
// quietly: a stored value for which the reader has its own, better message.
template <typename T, typename Parse>
std::optional<T> typedValue(const QVariantMap& stored, const Declaration& entry,
                            const QString& file, Parse parse,
                            bool (*quietly)(const QVariant&) = nullptr) {
    const QString name = QString::fromLatin1(entry.name);
    const auto found = stored.constFind(name);
    if (found != stored.constEnd()) {
        if (auto parsed = parse(*found))
            return parsed;
        if (quietly && quietly(*found))
            return std::nullopt;
        warnOnce(name, writtenForm(*found), file);
    }
    if (entry.defaultValue.isValid())
        return parse(entry.defaultValue);
    return std::nullopt;
}

// Whether two reads of the file hold the same for a key.
bool sameValue(const QVariantMap& a, const QVariantMap& b, const QString& name) {
    return a.contains(name) == b.contains(name) &&
           writtenForm(a.value(name)) == writtenForm(b.value(name));
}

} // namespace

Settings& Settings::shared() {
    static Settings* const settings = new Settings;
    return *settings;
}

Settings::Settings() {
    readFile();
    watchFile();
    // The file is replaced, not rewritten, when QSettings saves it, which ends
    // a watch on the file itself: the folder's watch sees the new one.
    // Reading takes no lock file, so a reload never wakes the watch again.
    connect(&watcher, &QFileSystemWatcher::fileChanged, this, &Settings::reload);
    connect(&watcher, &QFileSystemWatcher::directoryChanged, this, &Settings::reload);
}

QString Settings::name(Key key) {
    return QString::fromLatin1(declaration(key).name);
}

bool Settings::contains(Key key) const {
    return stored.contains(name(key));
}

QString Settings::writtenValue(Key key) const {
    return writtenForm(stored.value(name(key)));
}

double Settings::doubleValue(Key key) const {
    const Declaration& entry = declaration(key);
    requireType(entry, Type::number);
    return typedValue<double>(stored, entry, file, parseDouble).value_or(0.0);
}

bool Settings::boolValue(Key key) const {
    const Declaration& entry = declaration(key);
    requireType(entry, Type::boolean);
    return typedValue<bool>(stored, entry, file, parseBool).value_or(false);
}

std::optional<qint64> Settings::integerValue(Key key) const {
    const Declaration& entry = declaration(key);
    requireType(entry, Type::wholeNumber);
    return typedValue<qint64>(stored, entry, file, parseInteger, isWholeNumberText);
}

std::optional<QString> Settings::hotKeyName() const {
    const Declaration& entry = declaration(Key::hotKeyName);
    return typedValue<QString>(stored, entry, file, parseText);
}

void Settings::setFadeSeconds(double seconds) {
    write(Key::fadeSeconds, seconds);
}

void Settings::setHudVisible(bool visible) {
    write(Key::hudVisible, visible);
}

void Settings::setDidShowWelcome(bool shown) {
    write(Key::didShowWelcome, shown);
}

void Settings::setHotKey(qint64 code, qint64 modifiers, const QString& keyName) {
    write(Key::hotKeyCode, code);
    write(Key::hotKeyModifiers, modifiers);
    write(Key::hotKeyName, keyName);
}

void Settings::write(Key key, const QVariant& value) {
    {
        // Saving merges with what other writers put in the file meanwhile.
        QSettings settings = openSettings();
        settings.setValue(name(key), value);
        settings.sync();
    }
    reload();
}

void Settings::reload() {
    const QVariantMap before = stored;
    readFile();
    watchFile();
    for (const Declaration& entry : table)
        if (!sameValue(before, stored, QString::fromLatin1(entry.name)))
            emit changed(entry.key);
}

void Settings::readFile() {
    ++reads;
    QSettings settings = openSettings();
    file = settings.fileName();
    stored.clear();
    for (const Declaration& entry : table) {
        const QString key = QString::fromLatin1(entry.name);
        const QVariant value = settings.value(key);
        if (value.isValid())
            stored.insert(key, value);
    }
}

void Settings::watchFile() {
    const QString folder = QFileInfo(file).absolutePath();
    const QStringList wanted = {folder, file};
    const QStringList watched = watcher.files() + watcher.directories();
    for (const QString& path : watched)
        if (!wanted.contains(path))
            watcher.removePath(path);
    for (const QString& path : wanted)
        if (!watched.contains(path) && QFileInfo::exists(path))
            watcher.addPath(path);
}
