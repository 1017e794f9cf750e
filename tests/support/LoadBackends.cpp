#include "Backends.h"

#include <QCoreApplication>

namespace {

// Every test process picks its backends the way the program does, as soon as
// its application object exists.
void loadBackends() {
    Backends::load();
}

} // namespace

Q_COREAPP_STARTUP_FUNCTION(loadBackends)
