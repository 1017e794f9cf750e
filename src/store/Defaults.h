#pragma once

#include <QString>
#include <QVariant>
#include <QVariantMap>
#include <optional>

// The user's settings, over QSettings (INI, ~/.config/Quillery/Quillery.conf),
// with a registration domain of defaults that a stored value overrides.
// Every read goes to QSettings afresh, so a change made anywhere applies at once.
//
// A stored value of the wrong type (text in a number key, NaN, ...) is never
// rewritten or removed: the read falls back to the registered default, or to
// the type's zero, and says once on stderr which key and file it ignored.
class Defaults {
public:
    static void registerDefaults(const QVariantMap& defaults);
    // Forgets the registered defaults (for a fresh start in tests).
    static void resetRegistration();

    // Whether the settings file holds a value for key (registered defaults don't count).
    static bool hasObject(const QString& key);

    static double doubleValue(const QString& key);
    static bool boolValue(const QString& key);
    // std::nullopt when the key is absent from both the file and the registration,
    // or its value is not a whole number. A whole number too long for 64 bits
    // gives std::nullopt without a word: the caller tells what it means.
    static std::optional<qint64> integerValue(const QString& key);
    // std::nullopt also for a list (an unquoted comma in the file): not one text.
    static std::optional<QString> stringValue(const QString& key);

    static void setValue(const QString& key, const QVariant& value);
    static void remove(const QString& key);

    // The path of the settings file, for messages.
    static QString fileName();
};
