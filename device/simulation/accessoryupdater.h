#pragma once

#include "device/simulation/accessorylist.h"
#include "device/simulation/updater.h"

/// The update of a device on the accessory bus. Checking ends with FileNotFound, FileCorrupt,
/// FileNotCompatible or DeviceNotFound. Copying shows the progress of each part; it ends with Failed if the
/// file says so, and if the accessory is unplugged. A rebooting accessory is not in the list; it comes back
/// with the new version.
class AccessoryUpdater : public Updater {
public:
    AccessoryUpdater();

private:
    void reset(Phase former) override;
    void check() override;
    void copy(double elapsedMs) override;
    void finish() override;
    void showPart(int index, int percent);

    AccessoryList list_;
    Variable deviceName_{"RBusUpdateDeviceName"};
    Variable deviceSerial_{"RBusUpdateDeviceSerial"};
    Variable progress_{"RBusUpdateProgress"};
    Variable partName_{"RBusUpdatePartName"};
    Variable index_{"RBusUpdateIndex"};
    Variable count_{"RBusUpdateCount"};
    int place_ = AccessoryList::NOWHERE;
};
