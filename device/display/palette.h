#pragma once

#include "device/display/canvas.h"

/// The colours of the controller's screen, dark for work at night.
namespace palette {

inline constexpr Colour BACKGROUND = Colour::of(0x0b0d10);
inline constexpr Colour PANEL = Colour::of(0x14181d);
inline constexpr Colour TAPE = Colour::of(0x1b2027);
inline constexpr Colour LINE = Colour::of(0x2b323b);
inline constexpr Colour BRIGHT = Colour::of(0xf4f6f8);
inline constexpr Colour NORMAL = Colour::of(0xb9c1cb);
inline constexpr Colour DIM = Colour::of(0x77818d);
inline constexpr Colour INDEX = Colour::of(0xff5a36);
inline constexpr Colour RANGE = Colour::of(0x2aa7c9, 0.28);
inline constexpr Colour NOTE = Colour::of(0xf2c230);
inline constexpr Colour RECORDING = Colour::of(0xe02b2b);
inline constexpr Colour GOOD = Colour::of(0x43c46b);

} // namespace palette
