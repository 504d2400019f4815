#pragma once

#include "device/simulation/updater.h"

/// The controller's own update. Checking ends with FileNotFound, FileCorrupt or FileNotCompatible, copying
/// with CopyingFailed. "Rebooting" only takes time: the controller keeps running and has the new version
/// afterwards. The end of the update clears the file's name, so that naming the same file again is a change.
class HostUpdater : public Updater {
public:
    HostUpdater();

private:
    void reset(Phase former) override;
    void check() override;
    void copy(double elapsedMs) override;
    void finish() override;
    void end(const std::string& state);

    Variable fileVersion_{"HostUpdateFileFirmwareVersion"};
    Variable product_{"ProductName"};
    Variable version_{"ProductVersion"};
};
