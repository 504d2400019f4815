#pragma once

#include "device/display/reading.h"
#include "device/display/tapes.h"

/// The controller's screen:
///
///     +--------------------------------------------+
///     | camera, state       lens    radio, battery |
///     |                  focus                     |
///     |  =============== focus tape ============== |
///     |  iris            |  zoom                   |
///     |  === iris tape ==|== zoom tape =========== |
///     | speed | shutter | exposure index | ...     |
///     +--------------------------------------------+
class Screen {
public:
    /// Draws the whole screen, opaque.
    void draw(Canvas& canvas, const Reading& reading) const;

private:
    void drawFocus(Canvas& canvas, const Box& box, const Reading& reading) const;

    Tape metricFocus_ = metricFocusTape();
    Tape imperialFocus_ = imperialFocusTape();
    Tape iris_ = irisTape();
    Tape zoom_ = zoomTape();
};
