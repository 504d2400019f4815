#pragma once

#include "device/simulation/variable.h"

#include <string>

/// The devices on the accessory bus, by their place in the list.
class AccessoryList {
public:
    static constexpr int NOWHERE = -1;

    /// The place of the accessory, connected or not; NOWHERE if there is none.
    int find(const std::string& name, int serial) const;
    bool isConnected(int place) const;
    void setConnected(int place, bool isConnected);
    void setVersion(int place, const std::string& version);

private:
    Variable list_{"RBusDeviceList"};
};
