#include "ControlChannel.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <sys/stat.h>
#include <unistd.h>

QString ControlChannel::directory() {
    const QString runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
    if (!runtime.isEmpty() && QFileInfo(runtime).isDir())
        return runtime + QStringLiteral("/quillery");
    return QDir::tempPath() + QStringLiteral("/quillery-%1").arg(getuid());
}

QString ControlChannel::socketPath() {
    return directory() + QStringLiteral("/control");
}

QString ControlChannel::lockPath() {
    return directory() + QStringLiteral("/instance.lock");
}

bool ControlChannel::prepareDirectory(QString* error) {
    const QByteArray path = QFile::encodeName(directory());
    if (::mkdir(path.constData(), 0700) != 0 && errno != EEXIST) {
        *error = QCoreApplication::translate("ControlChannel", "Couldn't create %1: %2")
                     .arg(directory(), QString::fromLocal8Bit(strerror(errno)));
        return false;
    }
    return checkDirectory(error);
}

bool ControlChannel::checkDirectory(QString* error) {
    const QByteArray path = QFile::encodeName(directory());
    struct stat info {};
    if (::lstat(path.constData(), &info) != 0 || !S_ISDIR(info.st_mode)) {
        *error =
            QCoreApplication::translate("ControlChannel", "%1 is not a directory").arg(directory());
        return false;
    }
    if (info.st_uid != getuid()) {
        *error = QCoreApplication::translate("ControlChannel", "%1 belongs to another user")
                     .arg(directory());
        return false;
    }
    if ((info.st_mode & 077) != 0) {
        *error = QCoreApplication::translate(
                     "ControlChannel", "%1 can be entered by other users (mode %2); expected 0700")
                     .arg(directory())
                     .arg(info.st_mode & 0777, 4, 8, QLatin1Char('0'));
        return false;
    }
    return true;
}
