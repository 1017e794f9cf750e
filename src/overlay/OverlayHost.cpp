#include "OverlayHost.h"

#include "Fatal.h"

namespace {

std::unique_ptr<OverlayHost>& installed() {
    static std::unique_ptr<OverlayHost> host;
    return host;
}

} // namespace

OverlayHost& OverlayHost::current() {
    if (!installed())
        fatalError(QStringLiteral("no overlay host was chosen at start-up"));
    return *installed();
}

void OverlayHost::install(std::unique_ptr<OverlayHost> host) {
    installed() = std::move(host);
}
