#include "Defaults.h"

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

std::optional<QVariant> storedOrRegistered(const QString& key) {
    QSettings settings = openSettings();
    QVariant value = settings.value(key);
    if (value.isValid())
        return value;
    if (registration().contains(key))
        return registration().value(key);
    return std::nullopt;
}

void warnOnce(const QString& key, const QVariant& value) {
    static QSet<QString> warned;
    if (warned.contains(key))
        return;
    warned.insert(key);
    std::fprintf(stderr, "Quillery: ignoring the invalid value \"%s\" of \"%s\" in %s\n",
                 value.toString().toLocal8Bit().constData(), key.toLocal8Bit().constData(),
                 Defaults::fileName().toLocal8Bit().constData());
}

std::optional<double> parseDouble(const QVariant& value) {
    bool ok = false;
    const double number = value.toString().trimmed().toDouble(&ok);
    if (value.typeId() == QMetaType::Double || value.typeId() == QMetaType::Int ||
        value.typeId() == QMetaType::LongLong)
        return value.toDouble();
    if (ok)
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
    bool ok = false;
    const qint64 number = value.toString().trimmed().toLongLong(&ok);
    if (ok)
        return number;
    return std::nullopt;
}

// A typed read: the stored value if it parses, else the registered one, else zero.
template <typename T, typename Parse> std::optional<T> typedValue(const QString& key, Parse parse) {
    QSettings settings = openSettings();
    const QVariant stored = settings.value(key);
    if (stored.isValid()) {
        if (auto parsed = parse(stored))
            return parsed;
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
    return typedValue<qint64>(key, parseInteger);
}

std::optional<QString> Defaults::stringValue(const QString& key) {
    if (auto value = storedOrRegistered(key))
        return value->toString();
    return std::nullopt;
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
