#include "DesktopCheck.h"

#include <cstdlib>
#include <cstring>

namespace {
bool isSet(const char* name) {
    const char* value = std::getenv(name);
    return value && *value;
}
} // namespace

bool DesktopCheck::hasDesktop(int argc, char** argv) {
    if (isSet("DISPLAY") || isSet("WAYLAND_DISPLAY") || isSet("QT_QPA_PLATFORM"))
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
