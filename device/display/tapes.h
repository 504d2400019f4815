#pragma once

#include "device/display/tape.h"

/// The three rings' tapes, with the values that are engraved on such rings. All values are metric: the
/// imperial tape has its marks at full feet.
Tape metricFocusTape();
Tape imperialFocusTape();
Tape irisTape();
Tape zoomTape();

inline constexpr double METRES_PER_FOOT = 0.3048;
/// From here on a focus distance counts as infinity.
inline constexpr double INFINITY_METRES = 500;
