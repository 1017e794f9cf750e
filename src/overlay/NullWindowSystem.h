#pragma once

#include "WindowSystem.h"

// For platforms without a window system we can talk to (offscreen, tests).
class NullWindowSystem : public WindowSystem {
public:
    WindowId activeWindow() override { return 0; }
    WindowId focusedWindow() override { return 0; }
    bool activate(WindowId) override { return false; }
    void giveFocus(WindowId) override {}
    bool isApplicationWindow(WindowId) override { return false; }
    void releaseFocus() override {}
    // Offscreen windows keep their transparency: nothing to work around.
    bool isCompositing() override { return true; }
    void watchCompositing(std::function<void()>) override {}
    void watchSystemTray(std::function<void()>) override {}
    void setVisibleRegion(WindowId, const std::optional<QRegion>&) override {}
    void takeInputOncePerMove(WindowId) override {}
};
