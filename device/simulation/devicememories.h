#pragma once

#include "apps/common/sharedmemory/sharedmemory.h"

#include <list>

/// Creates all memories of the catalogue, maps them, clears them and sets the base pointers. The destructor
/// removes them.
class DeviceMemories {
public:
    /// Throws what SharedMemory::create and SharedMemory::address throw.
    DeviceMemories();

private:
    std::list<SharedMemory> memories_;
};
