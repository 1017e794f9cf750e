#pragma once

#include <optional>

// Wall-clock seconds as a double. One source of "now" for commit stamps, fading
// and painting, which tests can pin to a fixed moment.
class Clock {
public:
    static double now();
    // Pins now() to the given value; std::nullopt returns to the real clock.
    static void setFixedNow(std::optional<double> seconds);
};
