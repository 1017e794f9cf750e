#pragma once

// Whether a graphical desktop can be reached, checked before the application
// object exists (Qt aborts with a crash report of its own when it cannot
// connect): a display in the environment, or a platform chosen explicitly.
namespace DesktopCheck {
bool hasDesktop(int argc, char** argv);
// The one line printed when there is none.
const char* missingDesktopMessage();
} // namespace DesktopCheck
