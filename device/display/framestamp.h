#pragma once

#include <cstdint>

/// Numbers of frames, in the picture but not to be seen: the lowest bit of blue of the first 32 pixels of the
/// first and of the last row, most significant bit first. A picture whose two numbers differ is made of two
/// frames.

constexpr int FRAME_STAMP_PIXELS = 32;

/// Stamps a frame of pixels of four bytes, blue first. A frame that is narrower than the stamp gets none.
void stampFrame(unsigned char* pixels, int width, int height, std::uint32_t number);
