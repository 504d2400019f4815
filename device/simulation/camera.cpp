#include "device/simulation/camera.h"

#include "device/simulation/content.h"

#include <algorithm>
#include <cstdio>

namespace {

constexpr double RUN_MS = 12000;
constexpr double STANDBY_MS = 9000;
constexpr double MS_PER_SECOND = 1000;
const std::string RUN = "Run";
const std::string STANDBY = "Standby";

} // namespace

Camera::Camera() : shownState_(state_.text()), clipNumber_(clipCount_.toInt()) {}

void Camera::step(double timeMs) {
    if (state_.text() != shownState_)
        showState(timeMs);
    const bool isRunning = shownState_ == RUN;
    if (button_.toBool()) {
        button_.setBool(false);
        setRunning(!isRunning, timeMs);
    } else if ((isRunning && timeMs > enteredMs_ + RUN_MS) ||
               (shownState_ == STANDBY && timeMs > enteredMs_ + STANDBY_MS)) {
        setRunning(!isRunning, timeMs);
    } else if (isRunning) {
        showFootage(timeMs);
    }
}

void Camera::setRunning(bool isRunning, double timeMs) {
    state_.setText(isRunning ? RUN : STANDBY);
    showState(timeMs);
}

void Camera::showState(double timeMs) {
    if (shownState_ == RUN)
        addClip();
    shownState_ = state_.text();
    enteredMs_ = timeMs;
    runLight_.setText(shownState_ == RUN ? "Red" : "Green");
    showFootage(timeMs);
}

void Camera::showFootage(double timeMs) {
    if (shownState_ == RUN) {
        // Rounded to tenths, as a display shows it.
        footage_.setFloat(static_cast<int>((timeMs - enteredMs_) / MS_PER_SECOND * 10) / 10.0);
    }
}

void Camera::addClip() {
    // A full medium is replaced by an empty one.
    const int place = clipCount_.toInt() < CLIP_LIST_CAPACITY ? std::max(clipCount_.toInt(), 0) : 0;
    const double speed = 24;
    showClip(clips_, place, ++clipNumber_, static_cast<int>(footage_.toFloat() * speed), speed);
    clipCount_.setInt(place + 1);
    clipFlags_.setText(clipFlags(place + 1));
    lastClip_.setText(clipName(clipNumber_));
    selectedClip_.setInt(place);
}
