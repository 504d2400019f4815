#include "device/simulation/accessoryupdater.h"

namespace {

constexpr double PART_MS = 2500;
constexpr int ALL = 100;

} // namespace

AccessoryUpdater::AccessoryUpdater()
    : Updater({"RBusUpdateFileName", "RBusUpdateState", "RBusUpdateStart"}) {}

void AccessoryUpdater::reset(Phase former) {
    if (former == Phase::Rebooting)
        list_.setConnected(place_, true);
    count_.setInt(0);
    showPart(0, 0);
}

// Name and serial number of the accessory may be set after the file's name, so they are not read before.
void AccessoryUpdater::check() {
    file_ = readUpdateFile(fileName_.text());
    place_ = list_.find(deviceName_.text(), deviceSerial_.toInt());
    if (!list_.isConnected(place_)) {
        enter(Phase::Idle, "DeviceNotFound");
    } else if (file_.verdict == "FileValid" && file_.product != deviceName_.text()) {
        enter(Phase::Idle, "FileNotCompatible");
    } else {
        count_.setInt(file_.parts); // 0 for an invalid file
        enter(file_.verdict == "FileValid" ? Phase::Waiting : Phase::Idle, file_.verdict);
    }
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
