#include "RemoteCommands.h"

#include "DrawingCommands.h"
#include "DrawingStore.h"
#include "HotKeyConfig.h"
#include "HotKeyManager.h"
#include "OverlayController.h"
#include "OverlayHost.h"
#include "PaletteColor.h"

#include <QCoreApplication>
#include <QTimer>

namespace {
QString tr(const char* text) {
    return QCoreApplication::translate("RemoteCommands", text);
}
} // namespace

RemoteReply RemoteCommands::execute(const QString& request) const {
    const QString command = request.section(QLatin1Char(' '), 0, 0);
    const QString argument = request.section(QLatin1Char(' '), 1);
    OverlayController& overlay = OverlayController::shared();
    DrawingStore& store = overlay.store();

    if (command == QLatin1String("welcome")) {
        if (showWelcome)
            showWelcome();
    } else if (command == QLatin1String("toggle")) {
        overlay.toggle();
    } else if (command == QLatin1String("start")) {
        overlay.start();
    } else if (command == QLatin1String("stop")) {
        overlay.stop();
    } else if (command == QLatin1String("clear")) {
        DrawingCommands::clear(store);
    } else if (command == QLatin1String("undo")) {
        DrawingCommands::undo(store);
    } else if (command == QLatin1String("tool")) {
        const auto tool = toolFromRawValue(argument);
        if (!tool)
            return {2, tr("Unknown tool \"%1\".\n").arg(argument)};
        DrawingCommands::selectTool(store, *tool);
    } else if (command == QLatin1String("color")) {
        bool ok = false;
        const qint64 number = argument.toLongLong(&ok);
        if (!ok || !DrawingCommands::selectColor(store, number))
            return {2, tr("There is no colour \"%1\".\n").arg(argument)};
    } else if (command == QLatin1String("status")) {
        return {0, status()};
    } else if (command == QLatin1String("quit")) {
        // Answer first; the event loop ends after the reply has been written.
        if (quit)
            QTimer::singleShot(0, quit);
    } else {
        return {2, tr("Unknown command \"%1\".\n").arg(request.left(64))};
    }
    return {0, QString()};
}

QString RemoteCommands::status() {
    const DrawingStore& store = OverlayController::shared().store();
    const OverlayHost& host = OverlayController::shared().host();
    return QStringLiteral("drawing: %1\ntool: %2\ncolor: %3\nwidth: %4\nitems: %5\nhost: %6\n"
                          "translucency: %7\nshortcut: %8\n")
        .arg(store.isDrawing() ? QStringLiteral("on") : QStringLiteral("off"),
             rawValue(store.tool()), paletteColor(store.colorIndex()).name)
        .arg(store.width())
        .arg(store.items().size())
        .arg(host.name(),
             host.drawsTranslucent() ? QStringLiteral("yes")
                                     : QStringLiteral("no (no compositor runs)"),
             HotKeyManager::shared().describe(HotKeyConfig::current()));
}
