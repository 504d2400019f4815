#pragma once

#include "apps/common/sharedmemory/sharedmemory.h"

#include <list>

/// All memories of the catalogue as this process creates them: mapped, zero, and known to the catalogue
/// through the base pointers. They are removed when the object goes.
class DeviceMemories {
public:
    /// Throws what SharedMemory::create and SharedMemory::address throw.
    DeviceMemories();

private:
    std::list<SharedMemory> memories_;
};
