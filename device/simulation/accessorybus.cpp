#include "device/simulation/accessorybus.h"

namespace {

constexpr double PLUGGED_MS = 45000;
constexpr double UNPLUGGED_MS = 10000;

bool isUpdate(const std::string& state) {
    return state == "CheckingFile" || state == "FileValid" || state == "CopyingFile" || state == "Rebooting";
}

} // namespace

void AccessoryBus::step(double timeMs) {
    const bool isConnected = list_.isConnected(place_);
    const bool isOver = timeMs - sinceMs_ > (isConnected ? PLUGGED_MS : UNPLUGGED_MS);
    if (place_ != AccessoryList::NOWHERE && isOver && !isUpdate(updateState_.text())) {
        list_.setConnected(place_, !isConnected);
        sinceMs_ = timeMs;
    }
}
