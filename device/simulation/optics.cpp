#include "device/simulation/optics.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace {

constexpr double MM_PER_METRE = 1000;
constexpr double INCH_PER_METRE = 1 / 0.0254;
constexpr int INCH_PER_FOOT = 12;
constexpr double INFINITE_METRES = 1000;
constexpr double LEAST_CIRCLE_MM = 0.001;

} // namespace

void Optics::step(double /*timeMs*/) {
    const double focalLength = zoom_.toFloat();
    focalLength_.setFloat(focalLength);
    cameraFocalLength_.setFloat(focalLength);
    showFocusDistance(focus_.toFloat());
    showDepthOfField(focus_.toFloat(), focalLength, iris_.toFloat());
    char stop[8];
    std::snprintf(stop, sizeof stop, "T%.1f", static_cast<double>(iris_.toFloat()));
    // Setting a text always posts its event.
    if (cameraStop_.text() != stop)
        cameraStop_.setText(stop);
}

void Optics::showFocusDistance(double metres) {
    const int inches = static_cast<int>(std::lround(metres * INCH_PER_METRE));
    cameraMeter_.setFloat(metres);
    cameraFeet_.setInt(inches / INCH_PER_FOOT);
    cameraInch_.setInt(inches % INCH_PER_FOOT);
}

void Optics::showDepthOfField(double metres, double focalLength, double stop) {
    const double circle = std::max<double>(circleOfConfusion_.toFloat(), LEAST_CIRCLE_MM);
    const double hyperfocal = focalLength * focalLength / (stop * circle) / MM_PER_METRE;
    near_.setFloat(1 / (1 / metres + 1 / hyperfocal));
    far_.setFloat(metres < hyperfocal ? std::min(1 / (1 / metres - 1 / hyperfocal), INFINITE_METRES)
                                      : INFINITE_METRES);
}
