#include "device/display/screen.h"

#include <cmath>
#include <gtest/gtest.h>
#include <limits>

namespace {

using Bytes = std::vector<unsigned char>;

constexpr int WIDTH = 480;
constexpr int HEIGHT = 272;

Reading usual() {
    Reading reading;
    reading.focus = {2.8, 3};
    reading.iris = {4, 4};
    reading.zoom = {45, 45};
    reading.nearMetres = 2.5;
    reading.farMetres = 3.5;
    reading.markers[0] = 2.6;
    reading.lens = std::string("Zoom");
    reading.cameraIndex = std::string("A");
    reading.cameraState = std::string("Standby");
    reading.codec = std::string("RAW");
    reading.batteryPercent = 80;
    reading.isRadioOn = true;
    return reading;
}

Bytes drawn(const Reading& reading) {
    Bytes pixels(4 * WIDTH * HEIGHT, 0x5a);
    Canvas canvas(pixels.data(), WIDTH, HEIGHT);
    Screen().draw(canvas, reading);
    return pixels;
}

// Whether two pictures differ in the rows from `first` to before `last`, in 480ths of the height.
bool differ(const Bytes& left, const Bytes& right, int first, int last) {
    const auto row = [](int at) { return std::ptrdiff_t{4} * WIDTH * (at * HEIGHT / 480); };
    return !std::equal(left.begin() + row(first), left.begin() + row(last), right.begin() + row(first));
}

TEST(Screen, EachReadingShowsInItsPlaceAndThePixelsThatWereThereAreCovered) {
    const Bytes before = drawn(usual());
    for (std::size_t i = 3; i < before.size(); i += 4)
        ASSERT_EQ(before[i], 255) << "transparent at byte " << i;
    const auto expectChanged = [&](int first, int last, std::initializer_list<void (*)(Reading&)> changes) {
        for (const auto change : changes) {
            Reading reading = usual();
            change(reading);
            const Bytes after = drawn(reading);
            EXPECT_TRUE(differ(before, after, first, last));
            EXPECT_FALSE(differ(before, after, 0, first) || differ(before, after, last, 480)) << first;
        }
    };
    expectChanged(0, 56,
                  {[](Reading& r) { r.cameraState = std::string("Run"); },
                   [](Reading& r) { r.footageSeconds = 9; }, [](Reading& r) { r.batteryPercent = 10; },
                   [](Reading& r) { r.isRadioOn = false; }});
    expectChanged(60, 280,
                  {[](Reading& r) { r.focus.value = 3.1; }, [](Reading& r) { r.focus.target = 5; },
                   [](Reading& r) { r.farMetres = 6; }, [](Reading& r) { r.markers[3] = 3.2; },
                   [](Reading& r) { r.isInFeet = true; }});
    expectChanged(284, 420, {[](Reading& r) { r.iris.value = 5; }, [](Reading& r) { r.zoom.value = 50; }});
    expectChanged(418, 480, {[](Reading& r) { r.exposureIndex = 1600; }});
}

TEST(Screen, WhateverStandsInTheMemoriesIsDrawn) {
    Reading strange = usual();
    Reading replaced = usual();
    strange.lens = std::string("\xff\xc3\xe2\x88\x01\xf0\x9f");
    replaced.lens = std::string("???????");
    EXPECT_EQ(drawn(strange), drawn(replaced)) << "what followed the text was not drawn";
    for (const double value : {0.0, -1e30, 1e38, std::numeric_limits<double>::quiet_NaN(),
                               std::numeric_limits<double>::infinity()}) {
        strange.focus = strange.iris = strange.zoom = {value, value};
        strange.nearMetres = strange.farMetres = strange.markers[0] = value;
        strange.footageSeconds = strange.framesPerSecond = value;
        EXPECT_FALSE(differ(drawn(strange), drawn(replaced), 440, 445)) << value << " ended the drawing";
    }
}

} // namespace
