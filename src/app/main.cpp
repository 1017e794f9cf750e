#include "AppDelegate.h"
#include "DesktopCheck.h"

#include <QApplication>
#include <cstdio>

int main(int argc, char** argv) {
    if (!DesktopCheck::hasDesktop(argc, argv)) {
        std::fprintf(stderr, "%s\n", DesktopCheck::missingDesktopMessage());
        return 1;
    }
    QApplication application(argc, argv);
    AppDelegate::prepareApplication();
    AppDelegate delegate;
    delegate.applicationDidFinishLaunching();
    return application.exec();
}
