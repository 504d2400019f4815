#include "device/simulation/radio.h"

#include "device/simulation/drift.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr Drift STRENGTH_DBM{-67, 20, 45000};
constexpr int SILENCE_DBM = -128;
constexpr double WORST_DBM = -92;
constexpr double BEST_DBM = -55;
constexpr int GOOD_PERCENT = 40; // below it frames get lost

} // namespace

void Radio::step(double timeMs) {
    if (!power_.toBool()) {
        state_.setText("Init");
        strength_.setInt(SILENCE_DBM);
        quality_.setInt(0);
        clients_.setInt(0);
        return;
    }
    const double strength = STRENGTH_DBM.at(timeMs);
    const double part = (strength - WORST_DBM) / (BEST_DBM - WORST_DBM);
    const int quality = static_cast<int>(std::lround(100 * std::clamp(part, 0.0, 1.0)));
    state_.setText("Operating");
    strength_.setInt(static_cast<int>(std::lround(strength)));
    quality_.setInt(quality);
    clients_.setInt(1);
    if (quality < GOOD_PERCENT) {
        lostFrames_.setInt(
            static_cast<int>((static_cast<unsigned int>(lostFrames_.toInt()) + 1U) & 0x7fffffffU));
    }
}
