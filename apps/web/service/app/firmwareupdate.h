#pragma once

#include <cstdint>
#include <string>

/// The variables through which the service and the device's updaters tell each other about a firmware file:
/// the service names the file, the updater checks it and says so in a state, the service raises a start flag,
/// the updater counts its progress. Every change is posted; functions that store throw what postEvent throws.

/// How an update goes: the name of its state, and percent.
struct UpdateStatus {
    std::string state;
    std::int32_t progress = 0;
};

/// Of the device's own update. A file that is valid is started: its state reads "Rebooting" from then on.
/// There is no progress.
UpdateStatus hostUpdateStatus();

/// Of an accessory's update. A file that is valid is started; the state is told as it was. The progress goes
/// over all parts of the file.
UpdateStatus accessoryUpdateStatus();

/// Tells the device's own updater that its file, SUP_FILE, is there.
void offerHostFile();

/// Tells the accessories' updater that CMF_FILE is there for the accessory, also when there was one before.
/// Throws std::runtime_error when `serial` does not begin with a decimal number of 32 bits; the updater knows
/// of the file then, but not of the accessory.
void offerAccessoryFile(const std::string& name, const std::string& serial);
