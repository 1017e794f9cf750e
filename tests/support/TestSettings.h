#pragma once

#include "Settings.h"

#include <QDir>
#include <QFileInfo>
#include <QSaveFile>
#include <QSettings>
#include <QTemporaryDir>

// Points the settings at a fresh temporary directory for the lifetime of the
// object, so no test sees another's values or the user's own file.
class TestSettings {
public:
    TestSettings() {
        QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, dir.path());
        qputenv("XDG_CONFIG_HOME", dir.path().toLocal8Bit());
        Settings::shared().reload();
    }
    QString directory() const { return dir.path(); }
    QString filePath() const { return dir.path() + QStringLiteral("/Quillery/Quillery.conf"); }
    // Writes the file as an editor or QSettings would: a new file renamed over
    // the old one. Returns the contents, or nothing if the file couldn't be written.
    QByteArray writeFile(const QByteArray& contents) const {
        QDir().mkpath(QFileInfo(filePath()).path());
        QSaveFile file(filePath());
        const bool written = file.open(QIODevice::WriteOnly) &&
                             file.write(contents) == contents.size() && file.commit();
        return written ? contents : QByteArray();
    }

private:
    QTemporaryDir dir;
};
