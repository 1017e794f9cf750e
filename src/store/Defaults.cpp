#include "Defaults.h"

#include <QRegularExpression>
#include <QSet>
#include <QSettings>
#include <cmath>
#include <cstdio>

namespace {

QVariantMap& registration() {
    static QVariantMap map;
    return map;
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

void warnOnce(const QString& key, const QVariant& value) {
    static QSet<QString> warned;
    if (warned.contains(key))
        return;
    warned.insert(key);
    std::fprintf(stderr, "Quillery: ignoring the invalid value \"%s\" of \"%s\" in %s\n",
                 writtenForm(value).toLocal8Bit().constData(), key.toLocal8Bit().constData(),
                 Defaults::fileName().toLocal8Bit().constData());
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
    if (value.typeId() == QMetaType::QStringList)
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
    if (value.typeId() == QMetaType::QStringList)
        return std::nullopt;
    bool ok = false;
    const qint64 number = value.toString().trimmed().toLongLong(&ok);
    if (ok)
        return number;
    return std::nullopt;
}

bool isWholeNumberText(const QVariant& value) {
    static const QRegularExpression whole(QStringLiteral("^[+-]?[0-9]+$"));
    return value.typeId() != QMetaType::QStringList &&
           whole.match(value.toString().trimmed()).hasMatch();
}

// A typed read: the stored value if it parses, else the registered one, else zero.
// quietly: a stored value for which the caller has its own, better message.
template <typename T, typename Parse>
std::optional<T> typedValue(const QString& key, Parse parse,
                            bool (*quietly)(const QVariant&) = nullptr) {
    QSettings settings = openSettings();
    const QVariant stored = settings.value(key);
    if (stored.isValid()) {
        if (auto parsed = parse(stored))
            return parsed;
        if (quietly && quietly(stored))
            return std::nullopt;
        warnOnce(key, stored);
    }
    if (registration().contains(key))
        return parse(registration().value(key));
    return std::nullopt;
}

} // namespace

void Defaults::registerDefaults(const QVariantMap& defaults) {
    for (auto it = defaults.begin(); it != defaults.end(); ++it)
        registration().insert(it.key(), it.value());
}

void Defaults::resetRegistration() {
    registration().clear();
}

bool Defaults::hasObject(const QString& key) {
    return openSettings().contains(key);
}

double Defaults::doubleValue(const QString& key) {
    return typedValue<double>(key, parseDouble).value_or(0.0);
}

bool Defaults::boolValue(const QString& key) {
    return typedValue<bool>(key, parseBool).value_or(false);
}

std::optional<qint64> Defaults::integerValue(const QString& key) {
    // A whole number too long for 64 bits is still a number: whoever reads it
    // decides what its size means, and says so.
    return typedValue<qint64>(key, parseInteger, isWholeNumberText);
}

std::optional<QString> Defaults::stringValue(const QString& key) {
    return typedValue<QString>(key, [](const QVariant& value) -> std::optional<QString> {
        if (value.typeId() == QMetaType::QStringList)
            return std::nullopt;
        return value.toString();
    });
}

void Defaults::setValue(const QString& key, const QVariant& value) {
    QSettings settings = openSettings();
    settings.setValue(key, value);
    settings.sync();
}

void Defaults::remove(const QString& key) {
    QSettings settings = openSettings();
    settings.remove(key);
    settings.sync();
}

QString Defaults::fileName() {
    return openSettings().fileName();
}
