#include "device/simulation/drift.h"

#include <cmath>
#include <numbers>

double Drift::at(double timeMs) const {
    constexpr double SECOND_SWING = 2.618; // not a whole multiple of the main one
    const double angle = 2 * std::numbers::pi * timeMs / periodMs_;
    return centre_ + amplitude_ * (0.7 * std::sin(angle) + 0.3 * std::sin(SECOND_SWING * angle));
}
