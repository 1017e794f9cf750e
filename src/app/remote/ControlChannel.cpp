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

namespace {

// Only characters that are safe in a file name, so that no display name can
// reach outside the directory.
QString fileNameSafe(const QString& text) {
    QString safe;
    for (const QChar c : text)
        safe += (c.isLetterOrNumber() || c == u'-') && c.unicode() < 128 ? c : QChar(u'_');
    return safe;
}

// ":1", ":1.0", "unix:1" and "unix:1.0" are one local display; the screen
// number is no other session.
QString xDisplayKey(const QString& display) {
    const qsizetype colon = display.lastIndexOf(u':');
    QString host = display.left(colon);
    QString number = display.mid(colon + 1).section(u'.', 0, 0);
    if (host == QLatin1String("unix") || host == QLatin1String("localhost"))
        host.clear();
    return QStringLiteral("x11-") + fileNameSafe(host.isEmpty() ? number : host + u'-' + number);
}

// "wayland-1" lies in the runtime directory, and so does the same socket
// named by its whole path (as some launchers pass it): one name for both.
QString waylandSocketName(const QString& display) {
    const QString runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
    if (!display.startsWith(u'/') || runtime.isEmpty())
        return display;
    const QString inRuntime = QDir::cleanPath(runtime) + u'/';
    const QString path = QDir::cleanPath(display);
    return path.startsWith(inRuntime) ? path.mid(inRuntime.size()) : path;
}

} // namespace

QString ControlChannel::sessionKey() {
    if (const QString wayland = qEnvironmentVariable("WAYLAND_DISPLAY"); !wayland.isEmpty())
        return QStringLiteral("wayland-") + fileNameSafe(waylandSocketName(wayland));
    if (const QString display = qEnvironmentVariable("DISPLAY"); display.contains(u':'))
        return xDisplayKey(display);
    if (const QString session = qEnvironmentVariable("XDG_SESSION_ID"); !session.isEmpty())
        return QStringLiteral("session-") + fileNameSafe(session);
    return QStringLiteral("default");
}

QString ControlChannel::socketPath() {
    return directory() + u'/' + sessionKey() + QStringLiteral(".control");
}

QString ControlChannel::clientSocketPath() {
    const QString own = socketPath();
    if (QFileInfo::exists(own) || sessionHasDisplay())
        return own;
    // A client with no display of its own (a terminal over ssh, a service):
    // the user's only instance is the one it means.
    const QStringList running =
        QDir(directory()).entryList({QStringLiteral("*.control")}, QDir::System);
    return running.size() == 1 ? directory() + u'/' + running.first() : own;
}

bool ControlChannel::sessionHasDisplay() {
    return !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY") ||
           !qEnvironmentVariableIsEmpty("DISPLAY");
}

QString ControlChannel::lockPath() {
    return directory() + u'/' + sessionKey() + QStringLiteral(".lock");
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
