#pragma once

#include <iosfwd>
#include <string>

/// Writes what the companion app learns about the device: its identity, product name and firmware from shared
/// memory, the space of the root file system, and the accessories that are connected. Texts stand as they
/// are, without escaping. Sizes are bytes in unsigned 32-bit arithmetic: they wrap above 4 GiB, and are 0
/// when the file system does not tell.
void writeDeviceInfo(std::ostream& out, const std::string& deviceId, const std::string& serial);
