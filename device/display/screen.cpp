#include "device/display/screen.h"

#include "device/display/bars.h"
#include "device/display/palette.h"

#include <cmath>
#include <cstdarg>
#include <cstdio>

namespace {

using Align = Canvas::Align;
using Weight = Canvas::Weight;

constexpr double MARGIN = 12;
constexpr double GAP = 10;
constexpr double TOP_BAR = 54;
constexpr double BOTTOM_BAR = 62;
constexpr double SMALL_PANEL = 132;
constexpr int INCHES_PER_FOOT = 12;

__attribute__((format(printf, 1, 2))) std::string format(const char* text, ...) {
    char buffer[64];
    va_list arguments;
    va_start(arguments, text);
    std::vsnprintf(buffer, sizeof buffer, text, arguments);
    va_end(arguments);
    return buffer;
}

std::string distanceText(double metres, bool isInFeet) {
    if (!(metres < INFINITY_METRES))
        return "∞";
    if (!isInFeet)
        return format(metres < 10 ? "%.2f m" : "%.1f m", metres);
    const long inches = std::lround(metres / METRES_PER_FOOT * INCHES_PER_FOOT);
    return format("%ld' %ld\"", inches / INCHES_PER_FOOT, inches % INCHES_PER_FOOT);
}

void drawAxis(Canvas& canvas, const Box& box, const char* name, const std::string& value, const Tape& tape,
              const Reading::Axis& axis) {
    canvas.box(box, 8, palette::PANEL);
    canvas.text(box.left + 16, box.top + 36, name, {16, palette::DIM, Align::Left, Weight::Bold});
    canvas.text(box.right() - 16, box.top + 40, value, {32, palette::BRIGHT, Align::Right, Weight::Bold});
    tape.draw(canvas, {box.left + 10, box.top + 58, box.width - 20, box.height - 68},
              {axis.value, axis.target, 0, 0, {}});
}

} // namespace

void Screen::draw(Canvas& canvas, const Reading& reading) const {
    canvas.fill(palette::BACKGROUND);
    const double width = canvas.width() - 2 * MARGIN;
    const double small = Canvas::HEIGHT - BOTTOM_BAR - SMALL_PANEL;
    const double top = TOP_BAR + GAP;
    const double half = (width - GAP) / 2;
    drawTopBar(canvas, {0, 0, canvas.width(), TOP_BAR}, reading);
    drawFocus(canvas, {MARGIN, top, width, small - GAP - top}, reading);
    drawAxis(canvas, {MARGIN, small, half, SMALL_PANEL}, "IRIS", format("T%.1f", reading.iris.value), iris_,
             reading.iris);
    drawAxis(canvas, {MARGIN + half + GAP, small, half, SMALL_PANEL}, "ZOOM",
             format("%.1f mm", reading.zoom.value), zoom_, reading.zoom);
    drawBottomBar(canvas, {MARGIN, Canvas::HEIGHT - BOTTOM_BAR, width, BOTTOM_BAR}, reading);
}

void Screen::drawFocus(Canvas& canvas, const Box& box, const Reading& reading) const {
    const bool isInFeet = reading.isInFeet;
    const Tape& tape = isInFeet ? imperialFocus_ : metricFocus_;
    canvas.box(box, 8, palette::PANEL);
    const double left = box.left + 16;
    const double right = box.right() - 16;
    canvas.text(left, box.top + 32, "FOCUS", {16, palette::DIM, Align::Left, Weight::Bold});
    canvas.text(left, box.top + 58, "Depth of field", {14, palette::DIM});
    canvas.text(left, box.top + 80,
                distanceText(reading.nearMetres, isInFeet) + " – " +
                    distanceText(reading.farMetres, isInFeet),
                {17, palette::NORMAL});
    canvas.text(box.centre(), box.top + 72, distanceText(reading.focus.value, isInFeet),
                {60, palette::BRIGHT, Align::Centre, Weight::Bold});
    canvas.text(right, box.top + 58, "Target", {14, palette::DIM, Align::Right});
    canvas.text(right, box.top + 80, distanceText(reading.focus.target, isInFeet),
                {17, palette::NORMAL, Align::Right});
    tape.draw(canvas, {box.left + 10, box.top + 100, box.width - 20, box.height - 112},
              {reading.focus.value,
               reading.focus.target,
               reading.nearMetres,
               reading.farMetres,
               {reading.markers.begin(), reading.markers.end()}});
}
