#pragma once

#include <iosfwd>
#include <string>

/// Writes the companion app's device information: the identity, product name and firmware from shared memory,
/// the space of the root file system, and the connected accessories. Texts are not escaped. Sizes are bytes
/// in unsigned 32-bit arithmetic: they wrap above 4 GiB, and are 0 when statvfs fails.
void writeDeviceInfo(std::ostream& out, const std::string& deviceId, const std::string& serial);
