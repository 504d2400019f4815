#pragma once

#include "device/simulation/accessorylist.h"
#include "device/simulation/actor.h"

/// Somebody unplugs an accessory now and then and plugs it in again after a while, but not while one is being
/// updated.
class AccessoryBus : public Actor {
public:
    /// The accessory of that name and serial number. If there is none, nothing happens.
    AccessoryBus(const std::string& name, int serial) : place_(list_.find(name, serial)) {}

    void step(double timeMs) override;

private:
    AccessoryList list_;
    Variable updateState_{"RBusUpdateState"};
    int place_;
    double sinceMs_ = 0; ///< when the accessory was plugged in or unplugged
};
