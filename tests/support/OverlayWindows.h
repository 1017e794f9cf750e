#pragma once

#include "OverlayController.h"
#include "OverlayWindow.h"
#include "OverlayWindows.h"
#include "WidgetOverlayHost.h"

// The overlay's windows, where the overlay is drawn with Qt windows.
inline const std::vector<OverlayWindow*>& overlayWindows() {
    return dynamic_cast<WidgetOverlayHost&>(OverlayController::shared().host()).windows();
}
