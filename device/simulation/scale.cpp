#include "device/simulation/scale.h"

#include <algorithm>
#include <cmath>

double Scale::measure(double value) const {
    switch (kind_) {
    case Kind::Geometric:
        return std::log(value);
    case Kind::Reciprocal:
        return 1 / value;
    default:
        return value;
    }
}

double Scale::value(double position) const {
    const double measured = std::lerp(measure(first_), measure(last_), std::clamp(position, 0.0, 1.0));
    switch (kind_) {
    case Kind::Geometric:
        return std::exp(measured);
    case Kind::Reciprocal:
        return 1 / measured;
    default:
        return measured;
    }
}

double Scale::position(double value) const {
    // Limited to the ends first: zero and negative values have no measure.
    if (!(value > first_))
        return 0;
    return (measure(std::min(value, last_)) - measure(first_)) / (measure(last_) - measure(first_));
}
