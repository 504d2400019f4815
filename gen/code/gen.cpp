#include "gen/code/gen.h"

#include "apps/common/diagnostics/diagnostics.h"
#include "apps/common/files/standarddescriptors.h"
#include "apps/common/introspection/catalogue.h"
#include "apps/common/sharedmemory/sharedmemory.h"
#include "gen/code/introspection_gen.h"

#include <list>

namespace {

std::list<SharedMemory> makeMemories() {
    std::list<SharedMemory> memories;
    for (const MemoryDescriptor& memory : MEMORY_ARRAY)
        memories.emplace_back(memory.name, memory.size);
    return memories;
}

// Before the event loop and the segments open descriptors.
[[maybe_unused]] const bool HAS_STANDARD_DESCRIPTORS = (openStandardDescriptors(), true);

// In this order: at exit the event loop is destroyed first.
std::list<SharedMemory> gMemories = makeMemories();
EventPoll gEventPoll;

} // namespace

namespace gen {

void openMemories() {
    const MemoryDescriptor* descriptor = MEMORY_ARRAY;
    for (SharedMemory& memory : gMemories) {
        memory.open();
        *descriptor->basePointer = static_cast<char*>(memory.address());
        ++descriptor;
    }
}

void init() {
    processPreInit();
    openMemories();
    gServerConnection = new ServerConnection(gEventPoll);
    gServerConnection->subscribeAll();
    gComponentLogLevel = reinterpret_cast<LogLevel*>(gMemApp);
    processPostInit();
}

EventPoll& getEventPoll() {
    return gEventPoll;
}

ServerConnection* getServerConnection() {
    return gServerConnection;
}

void subscribeNotifications() {
    gServerConnection->subscribeAll();
}

void closeServerConnection() {
    delete gServerConnection;
    gServerConnection = nullptr;
}

} // namespace gen
