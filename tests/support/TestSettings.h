#pragma once

#include "Settings.h"

#include <QSettings>
#include <QTemporaryDir>
#include <QtGlobal>

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

private:
    QTemporaryDir dir;
};
