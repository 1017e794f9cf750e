#pragma once

#include <QFileSystemWatcher>
#include <QObject>
#include <QString>
#include <QVariant>
#include <QVariantMap>
#include <optional>

// The user's settings, every one declared once in the table in Settings.cpp
// (its name in the file, its type and its default), kept in memory and in
// step with the settings file (INI, ~/.config/Quillery/Quillery.conf): a
// change made by this program or by anyone editing the file shows at the next
// read, and no read touches the disk.
//
// A stored value of the wrong type (text in a number key, NaN, ...) is never
// rewritten or removed: the read falls back to the default, or to the type's
// zero, and says once on stderr which key, value and file it ignored.
class Settings : public QObject {
    Q_OBJECT
public:
    enum class Key {
        fadeSeconds,     // seconds before finished drawings fade; 0: never
        hudVisible,      // the hint bar while drawing
        didShowWelcome,  // the welcome window came once
        hotKeyCode,      // the drawing shortcut's key, as a stored key code
        hotKeyModifiers, // its modifiers, as stored modifier bits
        hotKeyName,      // its key's name, as shown
    };
    Q_ENUM(Key)

    static Settings& shared();

    // The key's name in the settings file.
    static QString name(Key key);
    // The settings file, for messages.
    QString fileName() const { return file; }
    // Whether the file holds a value for key (defaults don't count).
    bool contains(Key key) const;
    // The stored value as it is written in the file, for messages; empty when absent.
    QString writtenValue(Key key) const;

    double fadeSeconds() const { return doubleValue(Key::fadeSeconds); }
    bool hudVisible() const { return boolValue(Key::hudVisible); }
    bool didShowWelcome() const { return boolValue(Key::didShowWelcome); }
    // std::nullopt when absent or not a whole number. A whole number too long
    // for 64 bits gives std::nullopt without a word: its reader tells what it means.
    std::optional<qint64> hotKeyCode() const { return integerValue(Key::hotKeyCode); }
    std::optional<qint64> hotKeyModifiers() const { return integerValue(Key::hotKeyModifiers); }
    // std::nullopt also for a list (an unquoted comma in the file): not one text.
    std::optional<QString> hotKeyName() const;

    void setFadeSeconds(double seconds);
    void setHudVisible(bool visible);
    void setDidShowWelcome(bool shown);
    void setHotKey(qint64 code, qint64 modifiers, const QString& name);

    // Reads the file again, from wherever QSettings now puts it, and tells
    // what changed. The file watcher calls it; tests that move the file too.
    void reload();
    // How often the file has been read, for tests and benchmarks.
    int fileReads() const { return reads; }

signals:
    // A setting has a new value, set here or edited in the file.
    void changed(Settings::Key key);

private:
    Settings();

    double doubleValue(Key key) const;
    bool boolValue(Key key) const;
    std::optional<qint64> integerValue(Key key) const;
    void write(Key key, const QVariant& value);
    void readFile();
    void watchFile();

    QString file;
    QVariantMap stored;
    QFileSystemWatcher watcher;
    int reads = 0;
};
