#pragma once

#include <cstdint>

/// Invisible frame numbers in the picture: the lowest bit of blue in the first 32 pixels of the first and of
/// the last row, most significant bit first. A picture with two different numbers mixes two frames.

constexpr int FRAME_STAMP_PIXELS = 32;

/// Stamps a frame of pixels of four bytes, blue first. Does nothing to a frame narrower than 32 pixels.
void stampFrame(unsigned char* pixels, int width, int height, std::uint32_t number);
