#include "AppDelegate.h"
#include "Backends.h"
#include "DesktopCheck.h"
#include "RemoteLauncher.h"
#include "RemoteServer.h"

#include <QApplication>
#include <cstdio>

namespace {

int runInstance(int argc, char** argv, bool withRemoteControl) {
    if (!DesktopCheck::hasDesktop(argc, argv)) {
        std::fprintf(stderr, "%s\n", DesktopCheck::missingDesktopMessage());
        return 1;
    }
    Backends::chooseOverlayHost();
    // Started by its autostart entry, never restored by a session manager as
    // well (which would make two): Qt registers with none when none is named.
    qunsetenv("SESSION_MANAGER");
    QApplication application(argc, argv);
    Backends::load();
    AppDelegate::prepareApplication();
    AppDelegate delegate;
    delegate.applicationDidFinishLaunching();

    RemoteCommands commands;
    commands.showWelcome = [&delegate] { delegate.showWelcome(); };
    commands.quit = [&delegate] { delegate.quitApp(); };
    RemoteServer server(std::move(commands));
    QString error;
    if (withRemoteControl && !server.listen(&error))
        std::fprintf(stderr, "quillery: remote control is off: %s\n", qPrintable(error));
    return application.exec();
}

} // namespace

int main(int argc, char** argv) {
    return RemoteLauncher::run(argc, argv, runInstance);
}
