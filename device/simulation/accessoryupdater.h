#pragma once

#include "device/simulation/accessorylist.h"
#include "device/simulation/actor.h"
#include "device/simulation/updatefile.h"
#include "device/simulation/variable.h"

/// The update of a device on the accessory bus:
///
///     file named --> CheckingFile --> FileValid --start flag--> CopyingFile --> Rebooting --> Success
///                         |                                     part by part
///                         +--> FileNotFound, FileCorrupt,            |
///                              FileNotCompatible, DeviceNotFound     +--> Failed
///
/// While it reboots the accessory is not in the list; it comes back with the new version. It fails when the
/// file says so, and when the accessory is unplugged.
class AccessoryUpdater : public Actor {
public:
    void step(double timeMs) override;
    std::vector<std::uint32_t> interests() const override;
    void changed(std::uint32_t eventId) override;

private:
    enum class Phase { Idle, Checking, Waiting, Copying, Rebooting };

    /// Shows the state; with a phase in which nothing goes on the update is over.
    void enter(Phase phase, const std::string& state);
    void check();
    void begin();
    void copy(double elapsedMs);
    void finish();
    void showPart(int index, int percent);

    AccessoryList list_;
    Variable fileName_{"RBusUpdateFileName"};
    Variable deviceName_{"RBusUpdateDeviceName"};
    Variable deviceSerial_{"RBusUpdateDeviceSerial"};
    Variable start_{"RBusUpdateStart"};
    Variable state_{"RBusUpdateState"};
    Variable progress_{"RBusUpdateProgress"};
    Variable partName_{"RBusUpdatePartName"};
    Variable index_{"RBusUpdateIndex"};
    Variable count_{"RBusUpdateCount"};
    Phase phase_ = Phase::Idle;
    UpdateFile file_;
    int place_ = AccessoryList::NOWHERE;
    double nowMs_ = 0;
    double enteredMs_ = 0; ///< when the present phase began
};
