#pragma once

#include <cstdint>
#include <string>

/// The variables through which the service and the device's updaters exchange a firmware file: the service
/// names the file, the updater checks it and sets a state, the service sets a start flag, the updater reports
/// its progress. Every change is posted; functions that store throw what postEvent throws.

/// The name of an update's state, and its progress in percent.
struct UpdateStatus {
    std::string state;
    std::int32_t progress = 0;
};

/// The device's own update. Starts it when its file is valid; the state is "Rebooting" then. The progress is
/// always 0.
UpdateStatus hostUpdateStatus();

/// An accessory's update. Starts it when its file is valid; the state is returned as read. The progress
/// counts over all parts of the file.
UpdateStatus accessoryUpdateStatus();

/// Offers SUP_FILE to the device's own updater.
void offerHostFile();

/// Offers CMF_FILE to the accessories' updater, as a change even when the same path was set before. Throws
/// std::runtime_error when `serial` does not begin with a decimal number of 32 bits; the file's variables are
/// written then, those of the accessory are not.
void offerAccessoryFile(const std::string& name, const std::string& serial);
