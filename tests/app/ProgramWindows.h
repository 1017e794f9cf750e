#pragma once

#include "XDesktop.h"

// The windows of the running quillery program, as the X server sees them.
class ProgramWindows {
public:
    static QList<QPair<QString, QRect>> visible() {
        return XDesktop::visibleWindows(QStringLiteral("quillery"));
    }

    static bool isShown(const QString& id) {
        for (const auto& window : visible())
            if (window.first == id)
                return true;
        return false;
    }

    // An overlay covering the whole screen.
    static bool overlayIsUp(const QRect& screen = QRect(0, 0, 1920, 1080)) {
        for (const auto& window : visible())
            if (window.second == screen)
                return true;
        return false;
    }

    // The icon docked in a panel's tray at the bottom of the screen; null if none.
    static QRect trayIcon(int screenHeight = 1080) {
        for (const auto& window : visible())
            if (window.second.height() <= 64 && window.second.top() >= screenHeight - 80)
                return window.second;
        return {};
    }
};
