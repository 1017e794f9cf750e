#include "Clock.h"

#include <QDateTime>

namespace {
std::optional<double> fixedNow;
}

double Clock::now() {
    if (fixedNow)
        return *fixedNow;
    return double(QDateTime::currentMSecsSinceEpoch()) / 1000.0;
}

void Clock::setFixedNow(std::optional<double> seconds) {
    fixedNow = seconds;
}
