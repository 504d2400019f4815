#include "device/simulation/devicememories.h"

#include "apps/common/introspection/catalogue.h"

#include <cstring>

DeviceMemories::DeviceMemories() {
    for (const MemoryDescriptor& memory : MEMORY_ARRAY) {
        SharedMemory& segment = memories_.emplace_back(memory.name, memory.size);
        segment.create();
        *memory.basePointer = segment.address();
        // A segment of a former process keeps its bytes.
        std::memset(*memory.basePointer, 0, memory.size);
    }
}
