#pragma once

#include "PortalService.h"
#include "RunningQuillery.h"
#include "StatusNotifierHost.h"

#include <QProcess>

// What the end-to-end tests on a Wayland desktop share: the desktop's portal
// and tray, wl-input's ordinary window under the overlay, and the program.
class WaylandDesktop : public QObject {
protected:
    QProcess quillery;
    QProcess input;       // wl-input, for the whole test
    PortalService portal; // the desktop's global shortcut
    StatusNotifierHost tray;

    QByteArray ask(const QString& command) {
        input.write(command.toUtf8() + '\n');
        while (!input.canReadLine() && input.waitForReadyRead(5000)) {
        }
        return input.readLine().trimmed();
    }
    // What the window received so far: "clicks" or "keys".
    int windowCount(const QString& what) {
        const QByteArray answer = ask(what);
        return answer.startsWith("ok ") ? answer.mid(3).toInt() : -1;
    }
    // wl-input with its window, the desktop's services, then the program.
    bool start() {
        input.start(qEnvironmentVariable("QUILLERY_WL_INPUT"), {});
        if (!input.waitForReadyRead(10000) || input.readLine().trimmed() != "ready")
            return false;
        PortalService::registerTypes();
        QDBusConnection bus = QDBusConnection::sessionBus();
        if (!bus.registerVirtualObject(PortalService::path, &portal, QDBusConnection::SubPath) ||
            !bus.registerService("org.freedesktop.portal.Desktop") || !tray.watch(bus))
            return false;
        RunningQuillery::setSetting("fadeSeconds", 0); // ink stays: slow machines look slowly
        RunningQuillery::setSetting("didShowWelcome", true);
        quillery.setProcessChannelMode(QProcess::ForwardedChannels);
        quillery.start(RunningQuillery::binary(), {});
        return quillery.waitForStarted();
    }
    // The ways to start or stop drawing that need no keyboard.
    bool toggleBy(const QString& way) {
        if (way == "shortcut")
            portal.press(QDBusConnection::sessionBus(), "toggle-drawing", portal.session);
        else if (way == "tray") // named after the shortcut the desktop bound
            return tray.click("Stop Drawing   (Super+D)");
        return way == "shortcut" || RunningQuillery::command(way);
    }
    ~WaylandDesktop() override {
        RunningQuillery::command("--quit");
        quillery.waitForFinished(5000);
    }
};
