#pragma once

#include "OverlayHost.h"

// No display to draw on: no surfaces, so drawing never starts.
class NullOverlayHost : public OverlayHost {
public:
    std::vector<OverlaySurface*> rebuild(DrawingStore&) override { return {}; }
    QPoint pointerPosition() const override { return {}; }
    QString name() const override { return QStringLiteral("none"); }
};
