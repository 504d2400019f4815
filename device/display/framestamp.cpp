#include "device/display/framestamp.h"

#include <cstddef>

namespace {

constexpr std::size_t BYTES_PER_PIXEL = 4;

void stampRow(unsigned char* blue, std::uint32_t number) {
    for (int bit = FRAME_STAMP_PIXELS - 1; bit >= 0; --bit) {
        *blue = static_cast<unsigned char>((*blue & 0xfeU) | (number >> bit & 1U));
        blue += BYTES_PER_PIXEL;
    }
}

} // namespace

void stampFrame(unsigned char* pixels, int width, int height, std::uint32_t number) {
    if (width < FRAME_STAMP_PIXELS || height < 1)
        return;
    const std::size_t rowSize = static_cast<std::size_t>(width) * BYTES_PER_PIXEL;
    stampRow(pixels, number);
    stampRow(pixels + rowSize * static_cast<std::size_t>(height - 1), number);
}
