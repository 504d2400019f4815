#pragma once

#include "device/simulation/variable.h"

#include <string>

/// The devices on the accessory bus by their index in the list.
class AccessoryList {
public:
    static constexpr int NOWHERE = -1;

    /// The index of the accessory, connected or not; NOWHERE if the list does not have it.
    int find(const std::string& name, int serial) const;
    bool isConnected(int place) const;
    void setConnected(int place, bool isConnected);
    void setVersion(int place, const std::string& version);

private:
    Variable list_{"RBusDeviceList"};
};
