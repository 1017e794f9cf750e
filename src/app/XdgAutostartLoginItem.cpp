#include "XdgAutostartLoginItem.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <cerrno>
#include <sys/stat.h>

namespace {

QString tr(const char* text) {
    return QCoreApplication::translate("LoginItem", text);
}

QString configHome() {
    // A relative XDG_CONFIG_HOME is invalid and must be ignored.
    const QString fromEnvironment = qEnvironmentVariable("XDG_CONFIG_HOME");
    if (!fromEnvironment.isEmpty() && QDir::isAbsolutePath(fromEnvironment))
        return fromEnvironment;
    return QDir::homePath() + QStringLiteral("/.config");
}

// Creates folder and its missing parents, reporting the first that fails.
LoginItem::Failure makeFolder(const QString& folder) {
    const QFileInfo info(folder);
    if (info.isDir())
        return std::nullopt;
    if (!info.exists()) {
        const QString parent = info.absolutePath();
        if (parent != info.absoluteFilePath())
            if (auto failure = makeFolder(parent))
                return failure;
        if (::mkdir(QFile::encodeName(folder).constData(), 0777) == 0 || errno == EEXIST) {
            if (QFileInfo(folder).isDir())
                return std::nullopt;
        } else {
            return tr("Couldn't create the folder %1: %2.").arg(folder, qt_error_string(errno));
        }
    }
    return tr("Couldn't create the folder %1: a file of that name is in the way.").arg(folder);
}

// Hidden=true (the entry format's own switch) or GNOME's
// X-GNOME-Autostart-enabled=false, which its tools write instead.
bool isSwitchedOff(const QByteArray& contents) {
    bool inMainGroup = false;
    for (const QByteArray& rawLine : contents.split('\n')) {
        const QByteArray line = rawLine.trimmed();
        if (line.startsWith('[')) {
            inMainGroup = line == "[Desktop Entry]";
            continue;
        }
        if (!inMainGroup || line.startsWith('#'))
            continue;
        const qsizetype equals = line.indexOf('=');
        if (equals <= 0)
            continue;
        const QByteArray key = line.left(equals).trimmed();
        const QByteArray value = line.mid(equals + 1).trimmed();
        if ((key == "Hidden" && value == "true") ||
            (key == "X-GNOME-Autostart-enabled" && value == "false"))
            return true;
    }
    return false;
}

} // namespace

XdgAutostartLoginItem::XdgAutostartLoginItem(QString program) : program(std::move(program)) {}

QString XdgAutostartLoginItem::entryPath() {
    return configHome() + QStringLiteral("/autostart/quillery.desktop");
}

bool XdgAutostartLoginItem::isEnabled() const {
    QFile file(entryPath());
    if (!QFileInfo(file).isFile() || !file.open(QIODevice::ReadOnly))
        return false;
    return !isSwitchedOff(file.readAll());
}

LoginItem::Failure XdgAutostartLoginItem::registerItem() {
    const QString path = entryPath();
    if (auto failure = makeFolder(QFileInfo(path).absolutePath()))
        return failure;
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(entryContents()) < 0 || !file.commit())
        return tr("Couldn't write %1: %2.").arg(path, file.errorString());
    return std::nullopt;
}

LoginItem::Failure XdgAutostartLoginItem::unregisterItem() {
    const QString path = entryPath();
    QFile file(path);
    if (!QFileInfo(path).exists() && !QFileInfo(path).isSymLink())
        return std::nullopt;
    if (!file.remove())
        return tr("Couldn't remove %1: %2.").arg(path, file.errorString());
    return std::nullopt;
}

QString XdgAutostartLoginItem::execValue(const QString& program) {
    // First the quoting of one argument, then the escaping of any string value,
    // so a literal backslash ends up as four and a dollar sign as \\$.
    QString quoted = QStringLiteral("\"");
    for (const QChar c : program) {
        if (c == u'"' || c == u'`' || c == u'$' || c == u'\\')
            quoted += u'\\';
        if (c == u'%')
            quoted += u'%';
        quoted += c;
    }
    quoted += u'"';

    QString value;
    for (const QChar c : quoted) {
        if (c == u'\\')
            value += QStringLiteral("\\\\");
        else if (c == u'\n')
            value += QStringLiteral("\\n");
        else if (c == u'\t')
            value += QStringLiteral("\\t");
        else if (c == u'\r')
            value += QStringLiteral("\\r");
        else
            value += c;
    }
    return value;
}

QByteArray XdgAutostartLoginItem::entryContents() const {
    const QString target = program.isEmpty() ? QCoreApplication::applicationFilePath() : program;
    QString contents;
    contents += QStringLiteral("[Desktop Entry]\n");
    contents += QStringLiteral("Type=Application\n");
    contents += QStringLiteral("Name=Quillery\n");
    contents += QStringLiteral("Comment=Draw on top of everything on your screen\n");
    contents += QStringLiteral("Exec=") + execValue(target) + u'\n';
    contents += QStringLiteral("Terminal=false\n");
    contents += QStringLiteral("X-GNOME-Autostart-enabled=true\n");
    return contents.toUtf8();
}
