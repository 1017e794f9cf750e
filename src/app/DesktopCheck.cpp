#include "DesktopCheck.h"

#include <QtGlobal>
#include <cstring>

bool DesktopCheck::hasDesktop(int argc, char** argv) {
    for (const char* name : {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM"})
        if (!qEnvironmentVariableIsEmpty(name))
            return true;
    for (int i = 1; i < argc; ++i)
        if (std::strcmp(argv[i], "-platform") == 0 || std::strcmp(argv[i], "--platform") == 0 ||
            std::strncmp(argv[i], "-platform=", 10) == 0)
            return true;
    return false;
}

const char* DesktopCheck::missingDesktopMessage() {
    return "Quillery needs a graphical desktop (X11) to run: no DISPLAY is set.";
}
