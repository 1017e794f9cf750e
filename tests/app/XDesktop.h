#pragma once

#include <QImage>
#include <QProcess>
#include <QRect>
#include <QStringList>
#include <QWidget>
#include <QtTest>
#include <functional>

// The X server a test runs on, driven from outside as a user would: xdotool for
// real pointer and key events, ImageMagick for screenshots of the root window.
class XDesktop {
public:
    // Runs a command to its end; its standard output, or a null array if it failed.
    static QByteArray run(const QString& program, const QStringList& arguments,
                          int timeoutMs = 15000) {
        QProcess process;
        process.start(program, arguments);
        if (!process.waitForFinished(timeoutMs) || process.exitStatus() != QProcess::NormalExit ||
            process.exitCode() != 0) {
            qWarning() << program << arguments << "failed:" << process.readAllStandardError();
            return {};
        }
        QByteArray output = process.readAllStandardOutput();
        return output.isNull() ? QByteArray("") : output;
    }

    static bool xdotool(const QStringList& arguments) {
        return !run(QStringLiteral("xdotool"), arguments).isNull();
    }

    // A press, a drag through the given points and a release with the left button.
    static bool drag(const QList<QPoint>& points) {
        QStringList arguments;
        for (qsizetype i = 0; i < points.size(); ++i) {
            arguments << QStringLiteral("mousemove") << QString::number(points[i].x())
                      << QString::number(points[i].y());
            if (i == 0)
                arguments << QStringLiteral("mousedown") << QStringLiteral("1");
            arguments << QStringLiteral("sleep") << QStringLiteral("0.03");
        }
        arguments << QStringLiteral("mouseup") << QStringLiteral("1");
        return xdotool(arguments);
    }

    static QImage screenshot() {
        const QByteArray png =
            run(QStringLiteral("import"),
                {QStringLiteral("-window"), QStringLiteral("root"), QStringLiteral("png:-")});
        return QImage::fromData(png, "PNG").convertToFormat(QImage::Format_RGB32);
    }

    static int countPixels(const QImage& image, const std::function<bool(QColor)>& matches,
                           QRect area = {}) {
        if (area.isNull())
            area = image.rect();
        area &= image.rect();
        int count = 0;
        for (int y = area.top(); y <= area.bottom(); ++y)
            for (int x = area.left(); x <= area.right(); ++x)
                if (matches(QColor(image.pixel(x, y))))
                    ++count;
        return count;
    }

    // The palette's red and yellow as they come out on screen, with some slack
    // for antialiasing and the compositor.
    static bool isRed(QColor c) { return c.red() > 200 && c.green() < 90 && c.blue() < 90; }
    static bool isYellow(QColor c) { return c.red() > 200 && c.green() > 180 && c.blue() < 90; }

    // The window manager announces itself a moment before it manages windows;
    // a window mapped in between may stay unmapped for good. Waits until a
    // probe window is in the manager's client list and has the focus.
    static bool waitForWindowManager() {
        for (int attempt = 0; attempt < 40; ++attempt) {
            QWidget probe;
            probe.setWindowTitle(QStringLiteral("probe"));
            probe.resize(40, 40);
            probe.show();
            probe.activateWindow();
            const QByteArray id = "0x" + QByteArray::number(quint64(probe.winId()), 16);
            if (QTest::qWaitFor([&] { return isManaged(id); }, 250) &&
                QTest::qWaitForWindowActive(&probe, 1000))
                return true;
        }
        return false;
    }

    static bool isManaged(const QByteArray& windowId) {
        const QByteArray clients = run(
            QStringLiteral("xprop"), {QStringLiteral("-root"), QStringLiteral("_NET_CLIENT_LIST")});
        for (QByteArray entry : clients.mid(clients.indexOf('#') + 1).split(','))
            if (entry.trimmed() == windowId)
                return true;
        return false;
    }

    // The visible windows of a program, by its window class: {id, geometry}.
    static QList<QPair<QString, QRect>> visibleWindows(const QString& className) {
        QList<QPair<QString, QRect>> windows;
        // (xdotool search fails when nothing matches.)
        QProcess search;
        search.start(QStringLiteral("xdotool"),
                     {QStringLiteral("search"), QStringLiteral("--onlyvisible"),
                      QStringLiteral("--classname"), className});
        search.waitForFinished(5000);
        const QByteArray ids = search.readAllStandardOutput();
        for (const QByteArray& id : ids.split('\n')) {
            if (id.isEmpty())
                continue;
            const QByteArray shell = run(QStringLiteral("xdotool"),
                                         {QStringLiteral("getwindowgeometry"),
                                          QStringLiteral("--shell"), QString::fromLatin1(id)});
            QMap<QByteArray, int> values;
            for (const QByteArray& line : shell.split('\n'))
                if (const qsizetype equals = line.indexOf('='); equals > 0)
                    values[line.left(equals)] = line.mid(equals + 1).toInt();
            windows.append({QString::fromLatin1(id),
                            QRect(values["X"], values["Y"], values["WIDTH"], values["HEIGHT"])});
        }
        return windows;
    }

    // The ids of the windows whose title matches name (a regular expression).
    static QStringList windowsNamed(const QString& name) {
        QProcess process;
        process.start(QStringLiteral("xdotool"),
                      {QStringLiteral("search"), QStringLiteral("--name"), name});
        process.waitForFinished(5000);
        return QString::fromUtf8(process.readAllStandardOutput()).split(u'\n', Qt::SkipEmptyParts);
    }
};
