#include "WindowSystem.h"

#include "BackendSlot.h"

WindowSystem& WindowSystem::current() {
    return BackendSlot<WindowSystem>::current("window system");
}

void WindowSystem::install(std::unique_ptr<WindowSystem> system) {
    BackendSlot<WindowSystem>::install(std::move(system));
}
