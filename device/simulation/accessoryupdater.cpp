#include "device/simulation/accessoryupdater.h"

namespace {

constexpr double CHECK_MS = 800;
constexpr double PART_MS = 2500;
constexpr double REBOOT_MS = 3000;
constexpr int ALL = 100;

} // namespace

std::vector<std::uint32_t> AccessoryUpdater::interests() const {
    return {fileName_.eventId()};
}

// The accessory's name and serial number may be told a moment later: they are looked at when the file is.
void AccessoryUpdater::changed(std::uint32_t eventId) {
    if (eventId == fileName_.eventId() && !fileName_.text().empty()) {
        if (phase_ == Phase::Rebooting)
            list_.setConnected(place_, true);
        start_.setBool(false);
        count_.setInt(0);
        showPart(0, 0);
        enter(Phase::Checking, "CheckingFile");
    }
}

void AccessoryUpdater::step(double timeMs) {
    nowMs_ = timeMs;
    const double elapsedMs = timeMs - enteredMs_;
    if (phase_ == Phase::Checking && elapsedMs > CHECK_MS)
        check();
    else if (phase_ == Phase::Waiting && start_.toBool())
        begin();
    else if (phase_ == Phase::Copying)
        copy(elapsedMs);
    else if (phase_ == Phase::Rebooting && elapsedMs > REBOOT_MS)
        finish();
}

void AccessoryUpdater::enter(Phase phase, const std::string& state) {
    phase_ = phase;
    enteredMs_ = nowMs_;
    state_.setText(state);
}

void AccessoryUpdater::check() {
    file_ = readUpdateFile(fileName_.text());
    place_ = list_.find(deviceName_.text(), deviceSerial_.toInt());
    if (!list_.isConnected(place_)) {
        enter(Phase::Idle, "DeviceNotFound");
    } else if (file_.verdict == "FileValid" && file_.product != deviceName_.text()) {
        enter(Phase::Idle, "FileNotCompatible");
    } else {
        count_.setInt(file_.parts); // 0 for one that is not valid
        enter(file_.verdict == "FileValid" ? Phase::Waiting : Phase::Idle, file_.verdict);
    }
}

// File and accessory may have been replaced since they were looked at. The flag is lowered last: whoever
// still sees a valid file that nobody has started would raise it again.
void AccessoryUpdater::begin() {
    check();
    if (phase_ == Phase::Waiting)
        enter(Phase::Copying, "CopyingFile");
    start_.setBool(false);
}

void AccessoryUpdater::copy(double elapsedMs) {
    const auto index = static_cast<int>(elapsedMs / PART_MS);
    const bool fails = file_.fails && elapsedMs > (file_.parts - 0.5) * PART_MS;
    if (!list_.isConnected(place_) || fails) {
        enter(Phase::Idle, "Failed");
    } else if (index < file_.parts) {
        showPart(index, static_cast<int>((elapsedMs / PART_MS - index) * ALL));
    } else {
        showPart(file_.parts - 1, ALL);
        list_.setConnected(place_, false);
        enter(Phase::Rebooting, "Rebooting");
    }
}

void AccessoryUpdater::finish() {
    list_.setVersion(place_, file_.version);
    list_.setConnected(place_, true);
    enter(Phase::Idle, "Success");
}

void AccessoryUpdater::showPart(int index, int percent) {
    const std::string name = "Part " + std::to_string(index + 1);
    if (partName_.text() != name)
        partName_.setText(name);
    index_.setInt(index);
    progress_.setInt(percent);
}
