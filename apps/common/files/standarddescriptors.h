#pragma once

/// Opens /dev/null on those of the descriptors 0 to 2 that are closed, so that no other file gets their
/// numbers and with them what the process prints. Call it before the process opens anything else.
void openStandardDescriptors();
