#pragma once

#include "device/display/tape.h"

/// The tapes of the three rings with their usual engraved values. All values are metric; the imperial tape
/// has marks at whole feet.
Tape metricFocusTape();
Tape imperialFocusTape();
Tape irisTape();
Tape zoomTape();

inline constexpr double METRES_PER_FOOT = 0.3048;
/// Focus distances from here on count as infinity.
inline constexpr double INFINITY_METRES = 500;
