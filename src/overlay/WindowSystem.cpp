#include "WindowSystem.h"

#include "Fatal.h"

namespace {

std::unique_ptr<WindowSystem>& installed() {
    static std::unique_ptr<WindowSystem> system;
    return system;
}

} // namespace

WindowSystem& WindowSystem::current() {
    if (!installed())
        fatalError(QStringLiteral("no window system was chosen at start-up"));
    return *installed();
}

void WindowSystem::install(std::unique_ptr<WindowSystem> system) {
    installed() = std::move(system);
}
