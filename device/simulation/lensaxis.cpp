#include "device/simulation/lensaxis.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr double FULL_WAY_MS = 700;
constexpr double ARRIVAL_MS = 60; // time constant of the approach
constexpr double ARRIVED = 0.0002;

} // namespace

LensAxis::LensAxis(const Names& names, const Scale& scale)
    : scale_(scale), target_(names.target), positionVariable_(names.position), motor_(names.motor) {
    if (names.lensValue != nullptr)
        lensValue_.emplace(names.lensValue);
    position_ = scale_.position(target_.toFloat());
    show(position_);
}

void LensAxis::step(double timeMs) {
    const double elapsedMs = timeMs - lastMs_;
    lastMs_ = timeMs;
    const double wanted = scale_.position(target_.toFloat());
    if (wanted == position_)
        return;
    position_ = moved(wanted, elapsedMs);
    show(wanted);
}

double LensAxis::moved(double wanted, double elapsedMs) const {
    const double way = wanted - position_;
    if (std::abs(way) < ARRIVED)
        return wanted;
    const double limit = elapsedMs / FULL_WAY_MS;
    return position_ + std::clamp(way * -std::expm1(-elapsedMs / ARRIVAL_MS), -limit, limit);
}

void LensAxis::show(double wanted) {
    positionVariable_.setFloat(position_);
    motor_.setElement(
        0, {{"MotorPosition", std::to_string(position_)}, {"MotorTarget", std::to_string(wanted)}});
    if (lensValue_)
        lensValue_->setFloat(scale_.value(position_));
}
