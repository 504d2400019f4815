#include "device/simulation/battery.h"

#include "device/simulation/drift.h"

#include <cmath>
#include <cstdio>

namespace {

constexpr double FIRST_PERCENT = 87;
constexpr double LAST_PERCENT = 8; // at which the battery is changed
constexpr double MS_PER_PERCENT = 20000;
constexpr double EMPTY_VOLTS = 6.6;
constexpr double FULL_VOLTS = 8.4;

constexpr Drift CURRENT{0.9, 0.35, 9000};
constexpr Drift TEMPERATURE{31, 4, 240000};
constexpr Drift BUS_VOLTS{24.1, 0.25, 17000};
constexpr Drift CAMERA_VOLTS{25.6, 0.4, 31000};

// In the steps of the device's converter, so that a value does not change with every step of the scene.
double inSteps(double value, double step) {
    return std::round(value / step) * step;
}

} // namespace

void Battery::step(double timeMs) {
    const double used = std::fmod(timeMs / MS_PER_PERCENT + 100 - FIRST_PERCENT, 100 - LAST_PERCENT);
    const double charge = 100 - used;
    const double amperes = CURRENT.at(timeMs);
    const double volts = EMPTY_VOLTS + (FULL_VOLTS - EMPTY_VOLTS) * charge / 100 - 0.08 * amperes;
    percent_.setInt(static_cast<int>(charge));
    voltage_.setFloat(inSteps(volts, 0.01));
    supplyVoltage_.setFloat(inSteps(volts, 0.01));
    current_.setFloat(inSteps(amperes, 0.01));
    temperature_.setFloat(inSteps(TEMPERATURE.at(timeMs), 0.1));
    busVoltage_.setFloat(inSteps(BUS_VOLTS.at(timeMs), 0.05));
    char cameraVolts[16];
    std::snprintf(cameraVolts, sizeof cameraVolts, "%.1f", CAMERA_VOLTS.at(timeMs));
    cameraSupply_.setElement(0, {{"CamSupplyValue", cameraVolts}});
}
