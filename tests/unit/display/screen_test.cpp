#include "device/display/screen.h"

#include <gtest/gtest.h>
#include <limits>

namespace {

constexpr int WIDTH = 480;
constexpr int HEIGHT = 272;

std::vector<std::uint32_t> drawn(const Reading& reading) {
    std::vector<std::uint32_t> pixels(WIDTH * HEIGHT, 0x5a5a5a5a);
    Canvas canvas(reinterpret_cast<unsigned char*>(pixels.data()), WIDTH, HEIGHT);
    Screen().draw(canvas, reading);
    return pixels;
}

// Memories can have any content. The exposure index is drawn last: its change shows that the drawing did not
// end before.
TEST(Screen, AnyReadingIsDrawnToItsEnd) {
    Reading reading;
    for (const double value : {0.0, 3.0, -1e30, 1e38, std::numeric_limits<double>::quiet_NaN(),
                               std::numeric_limits<double>::infinity()}) {
        reading.focus = reading.iris = reading.zoom = {value, value};
        reading.nearMetres = reading.farMetres = reading.markers[0] = value;
        reading.footageSeconds = reading.framesPerSecond = value;
        reading.lens = std::string("\xff\xc3\xe2\x88\x01\xf0\x9f");
        reading.exposureIndex = 800;
        const std::vector<std::uint32_t> strange = drawn(reading);
        reading.lens = std::string("???????");
        EXPECT_EQ(drawn(reading), strange) << "malformed UTF-8";
        reading.exposureIndex = 1600;
        EXPECT_NE(drawn(reading), strange) << value;
    }
}

} // namespace
