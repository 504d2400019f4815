#include "device/display/bars.h"

#include "device/display/palette.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace {

using Align = Canvas::Align;
using Weight = Canvas::Weight;

constexpr int LOW_PERCENT = 20;

std::string number(double value, int decimals, const char* unit) {
    char text[48];
    std::snprintf(text, sizeof text, "%.*f%s", decimals, value, unit);
    return text;
}

// "01:05.2"
std::string footageText(double seconds) {
    const double most = 359'999.9;
    const long tenths = std::lround(std::clamp(std::isfinite(seconds) ? seconds : 0, 0.0, most) * 10);
    char text[32];
    std::snprintf(text, sizeof text, "%02ld:%02ld.%ld", tenths / 600, tenths / 10 % 60, tenths % 10);
    return text;
}

// Returns the place of the next item.
double drawState(Canvas& canvas, double left, double middle, const Reading& reading) {
    const bool isRunning = reading.cameraState == "Run";
    const std::string text = isRunning                          ? "REC"
                             : reading.cameraState == "Standby" ? "STBY"
                                                                : reading.cameraState;
    const Canvas::Style style{17, isRunning ? palette::BRIGHT : palette::GOOD, Align::Left, Weight::Bold};
    const double dot = 16;
    const double width = canvas.textWidth(text, style) + 24 + dot;
    const Box pill{left, middle - 16, width, 32};
    if (isRunning)
        canvas.box(pill, 16, palette::RECORDING);
    else
        canvas.frame(pill, 16, 1.5, palette::LINE);
    canvas.circle(left + 18, middle, 5, style.colour);
    canvas.text(left + 14 + dot, middle + 6, text, style);
    return pill.right() + 14;
}

void drawCamera(Canvas& canvas, double left, double middle, const Reading& reading) {
    const Box badge{left, middle - 16, 32, 32};
    canvas.box(badge, 6, palette::BRIGHT);
    canvas.text(badge.centre(), middle + 8, reading.cameraIndex.substr(0, 2),
                {22, palette::BACKGROUND, Align::Centre, Weight::Bold});
    const double next = drawState(canvas, badge.right() + 12, middle, reading);
    canvas.text(next, middle + 7, footageText(reading.footageSeconds), {20, palette::BRIGHT});
}

// Draws to the left of `right` and returns the left edge.
double drawBattery(Canvas& canvas, double right, double middle, int percent) {
    const double part = std::clamp(percent, 0, 100) / 100.0;
    const Box body{right - 46, middle - 11, 40, 22};
    const Colour colour = percent < LOW_PERCENT ? palette::RECORDING : palette::GOOD;
    canvas.frame(body, 4, 2, palette::NORMAL);
    canvas.box({body.right() + 2, middle - 5, 4, 10}, 1, palette::NORMAL);
    canvas.box({body.left + 3.5, body.top + 3.5, 3 + (body.width - 10) * part, body.height - 7}, 1.5, colour);
    const double end = body.left - 8;
    return end - canvas.text(end, middle + 6, number(percent, 0, "%"), {17, palette::BRIGHT, Align::Right}) -
           20;
}

void drawRadio(Canvas& canvas, double right, double middle, const Reading& reading) {
    constexpr int BARS = 5;
    const int lit = reading.isRadioOn ? (reading.radioPercent * BARS + 99) / 100 : 0;
    for (int bar = BARS; bar > 0; --bar) {
        const double height = 4 + 4 * bar;
        const double left = right - 8 * (BARS + 1 - bar);
        canvas.box({left, middle + 12 - height, 5, height}, 1, bar <= lit ? palette::BRIGHT : palette::LINE);
    }
    const std::string text = reading.isRadioOn ? number(reading.radioChannel, 0, "") : "OFF";
    const Canvas::Style style{17, palette::BRIGHT, Align::Right};
    const double end = right - 8 * BARS - 10;
    const double width = canvas.text(end, middle + 6, text, style);
    canvas.text(end - width - 6, middle + 6, "CH", {14, palette::DIM, Align::Right});
}

} // namespace

void drawTopBar(Canvas& canvas, const Box& box, const Reading& reading) {
    const double middle = box.top + box.height / 2;
    canvas.box(box, 0, palette::PANEL);
    canvas.horizontal(box.bottom(), box.left, box.right(), 1, palette::LINE);
    drawCamera(canvas, box.left + 14, middle, reading);
    canvas.text(box.centre() + 20, middle + 6, reading.lens, {17, palette::NORMAL, Align::Centre});
    drawRadio(canvas, drawBattery(canvas, box.right() - 14, middle, reading.batteryPercent), middle, reading);
}

void drawBottomBar(Canvas& canvas, const Box& box, const Reading& reading) {
    const struct {
        const char* name;
        std::string value;
    } cells[] = {
        {"FPS", number(reading.framesPerSecond, 3, "")},
        {"SHUTTER", number(reading.shutterDegrees, 1, "°")},
        {"EI", number(reading.exposureIndex, 0, "")},
        {"WHITE BALANCE", number(reading.whiteBalanceKelvin, 0, " K")},
        {"RECORDING", reading.codec},
    };
    const double width = box.width / static_cast<double>(std::size(cells));
    double left = box.left;
    for (const auto& cell : cells) {
        canvas.clip({left, box.top, width, box.height});
        canvas.text(left + 16, box.top + 26, cell.name, {12, palette::DIM, Align::Left, Weight::Bold});
        canvas.text(left + 16, box.top + 48, cell.value, {18, palette::BRIGHT});
        canvas.unclip();
        left += width;
    }
}
