#include "device/simulation/accessorylist.h"

#include "gen/code/memories.h"

#include <cstddef>
#include <cstring>

namespace {

constexpr int PLACES = 16;

RbusDevice at(const Variable& list, int place) {
    RbusDevice device;
    const char* address = *list.row().memory + list.row().location;
    std::memcpy(&device, address + static_cast<std::size_t>(place) * sizeof device, sizeof device);
    return device;
}

} // namespace

int AccessoryList::find(const std::string& name, int serial) const {
    for (int place = 0; place < PLACES; ++place) {
        const RbusDevice device = at(list_, place);
        const std::size_t length = strnlen(device.RBusDeviceName, sizeof device.RBusDeviceName);
        if (device.RBusSerNumber == serial && name == std::string(device.RBusDeviceName, length))
            return place;
    }
    return NOWHERE;
}

bool AccessoryList::isConnected(int place) const {
    return place >= 0 && place < PLACES && at(list_, place).RBusDeviceConnected != 0;
}

void AccessoryList::setConnected(int place, bool isConnected) {
    list_.setElement(place, {{"RBusDeviceConnected", isConnected ? "true" : "false"}});
}

void AccessoryList::setVersion(int place, const std::string& version) {
    list_.setElement(place, {{"RBusMainSwVersion", version}});
}
