#include "device/display/screen.h"

#include "device/display/framestamp.h"

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

/// Whether two pictures differ in the rows from `first` to before `last`, in 480ths of the height.
bool differ(const Bytes& left, const Bytes& right, int first, int last) {
    const auto row = [](int at) { return std::ptrdiff_t{4} * WIDTH * (at * HEIGHT / 480); };
    return !std::equal(left.begin() + row(first), left.begin() + row(last), right.begin() + row(first));
}

TEST(Screen, CoversThePixelsThatWereThere) {
    const Bytes pixels = drawn(usual());
    for (std::size_t i = 3; i < pixels.size(); i += 4) {
        ASSERT_EQ(pixels[i], 255) << "transparent at byte " << i;
    }
    EXPECT_EQ(drawn(usual()), pixels);
}

TEST(Screen, EachReadingShowsInItsPlace) {
    const Bytes before = drawn(usual());
    const auto changesOnly = [&](void (*change)(Reading&), int first, int last) {
        Reading reading = usual();
        change(reading);
        const Bytes after = drawn(reading);
        return differ(before, after, first, last) && !differ(before, after, 0, first) &&
               !differ(before, after, last, 480);
    };
    EXPECT_TRUE(changesOnly([](Reading& r) { r.focus.value = 3.1; }, 60, 280));
    EXPECT_TRUE(changesOnly([](Reading& r) { r.focus.target = 5; }, 60, 280));
    EXPECT_TRUE(changesOnly([](Reading& r) { r.farMetres = 6; }, 60, 280));
    EXPECT_TRUE(changesOnly([](Reading& r) { r.markers[3] = 3.2; }, 60, 280));
    EXPECT_TRUE(changesOnly([](Reading& r) { r.isInFeet = true; }, 60, 280));
    EXPECT_TRUE(changesOnly([](Reading& r) { r.iris.value = 5; }, 284, 420));
    EXPECT_TRUE(changesOnly([](Reading& r) { r.zoom.value = 50; }, 284, 420));
    EXPECT_TRUE(changesOnly([](Reading& r) { r.cameraState = std::string("Run"); }, 0, 56));
    EXPECT_TRUE(changesOnly([](Reading& r) { r.footageSeconds = 9; }, 0, 56));
    EXPECT_TRUE(changesOnly([](Reading& r) { r.batteryPercent = 10; }, 0, 56));
    EXPECT_TRUE(changesOnly([](Reading& r) { r.isRadioOn = false; }, 0, 56));
    EXPECT_TRUE(changesOnly([](Reading& r) { r.exposureIndex = 1600; }, 418, 480));
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

TEST(FrameStamp, FirstAndLastRowHoldTheNumberInTheLowestBitOfBlue) {
    Bytes pixels(4 * 40 * 3, 0x80);
    stampFrame(pixels.data(), 40, 3, 0x80000005);
    for (const std::size_t row : {std::size_t{0}, std::size_t{2}}) {
        const unsigned char* const blue = &pixels[row * 4 * 40];
        EXPECT_EQ(blue[0], 0x81);
        EXPECT_EQ(blue[4], 0x80);
        EXPECT_EQ(blue[4 * 29], 0x81);
        EXPECT_EQ(blue[4 * 31], 0x81);
    }
    EXPECT_EQ(std::count(pixels.begin(), pixels.end(), 0x81), 6);
    Bytes narrow(4 * 31, 7);
    stampFrame(narrow.data(), 31, 1, 0);
    EXPECT_EQ(narrow, Bytes(4 * 31, 7));
}

} // namespace
