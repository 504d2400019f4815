#include "device/display/tapes.h"

#include <cstdio>

namespace {

constexpr const char* INFINITY_SIGN = "∞";

std::vector<Tape::Mark> marksAt(std::initializer_list<double> values, double factor = 1) {
    std::vector<Tape::Mark> marks;
    for (const double value : values) {
        char label[16];
        std::snprintf(label, sizeof label, "%g", value);
        marks.push_back({value * factor, label});
    }
    return marks;
}

Tape focusTape(std::vector<Tape::Mark> marks) {
    constexpr double LENGTH = 2600;
    marks.push_back({1000, INFINITY_SIGN});
    return Tape(FOCUS_SCALE, LENGTH, marks, 5);
}

} // namespace

Tape metricFocusTape() {
    return focusTape(marksAt({0.45, 0.5, 0.55, 0.6, 0.7, 0.8, 0.9, 1, 1.2, 1.5, 2, 2.5, 3, 4, 5, 7, 10, 20}));
}

Tape imperialFocusTape() {
    return focusTape(marksAt({1.5, 1.75, 2, 2.25, 2.5, 3, 3.5, 4, 5, 6, 8, 10, 15, 25, 50}, METRES_PER_FOOT));
}

Tape irisTape() {
    constexpr double LENGTH = 640;
    return Tape(IRIS_SCALE, LENGTH, marksAt({2, 2.8, 4, 5.6, 8, 11, 16, 22}), 3);
}

Tape zoomTape() {
    constexpr double LENGTH = 900;
    return Tape(ZOOM_SCALE, LENGTH, marksAt({19.5, 24, 28, 35, 40, 50, 60, 75, 94}), 5);
}
