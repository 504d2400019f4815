#pragma once

#include "device/simulation/accessorylist.h"
#include "device/simulation/actor.h"

/// Unplugs an accessory periodically and plugs it in again, but not during an update.
class AccessoryBus : public Actor {
public:
    /// The accessory with this name and serial number. Does nothing if the list does not have it.
    AccessoryBus(const std::string& name, int serial) : place_(list_.find(name, serial)) {}

    void step(double timeMs) override;

private:
    AccessoryList list_;
    Variable updateState_{"RBusUpdateState"};
    int place_;
    double sinceMs_ = 0; ///< time of the last change
};
