#pragma once

#include "device/display/canvas.h"
#include "device/display/reading.h"

/// The upper edge of the screen: camera and its state, lens, radio and battery.
void drawTopBar(Canvas& canvas, const Box& box, const Reading& reading);

/// The lower edge: the camera's settings.
void drawBottomBar(Canvas& canvas, const Box& box, const Reading& reading);
