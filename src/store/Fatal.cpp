#include "Fatal.h"

#include <cstdio>
#include <cstdlib>

void fatalError(const QString& message) {
    std::fprintf(stderr, "Quillery: fatal error: %s\n", message.toLocal8Bit().constData());
    std::fflush(stderr);
    std::abort();
}
