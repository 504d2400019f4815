#include "apps/live/metrics.h"

#include "apps/common/event/serverconnection.h"
#include "apps/common/introspection/catalogue.h"
#include "apps/live/output.h"

#include <algorithm>
#include <fstream>
#include <unistd.h>

namespace {

void append(std::string& out, const char* kind, const std::string& name, const char* help,
            std::uint64_t value) {
    const bool isCounter = kind[0] == 'c';
    out += "# TYPE " + name + " " + kind + "\n# HELP " + name + " " + help + "\n" + name +
           (isCounter ? "_total " : " ") + std::to_string(value) + "\n";
}

// /proc/self/statm: all pages, resident pages, ...
std::uint64_t residentBytes() {
    std::ifstream file("/proc/self/statm");
    std::uint64_t all = 0;
    std::uint64_t resident = 0;
    file >> all >> resident;
    return resident * static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE));
}

} // namespace

std::size_t mappedMemories() {
    return static_cast<std::size_t>(std::count_if(
        MEMORY_ARRAY, MEMORY_ARRAY + MEMORY_ARRAY_SIZE,
        [](const MemoryDescriptor& memory) { return *memory.basePointer != nullptr; }));
}

bool hasBroker() {
    return gServerConnection != nullptr && gServerConnection->isOpen();
}

std::string metricsText(const Counters& counters, std::size_t streams) {
    std::string out;
    append(out, "counter", "live_requests", "Requests.", counters.requests);
    append(out, "counter", "live_requests_refused", "Requests answered with a status of 400 or more.",
           counters.refused);
    append(out, "counter", "live_connections_refused", "Connections closed because of the limit.",
           counters.connections);
    append(out, "gauge", "live_clients", "Clients that get events.", streams);
    append(out, "counter", "live_events", "Events received from the message broker.", counters.events);
    append(out, "counter", "live_values_stored", "Values stored for clients.", counters.stored);
    append(out, "counter", "live_messages_printed",
           "Messages, each printed once for all clients that need it.", counters.printed);
    append(out, "counter", "live_messages_sent", "Messages sent to clients.", counters.messages);
    append(out, "counter", "live_heartbeats", "Heartbeats sent to clients.", counters.heartbeats);
    append(out, "counter", "live_changes_overwritten",
           "Changes that a slow client did not get because a later one replaced them.", counters.late);
    append(out, "gauge", "live_output_bytes", "Bytes that clients have not taken yet.", Output::held());
    append(out, "gauge", "live_resident_memory_bytes", "Resident memory.", residentBytes());
    append(out, "gauge", "live_broker_connected", "1 while the message broker is connected.",
           hasBroker() ? 1 : 0);
    append(out, "gauge", "live_segments_mapped", "Shared-memory segments that are mapped.", mappedMemories());
    return out + "# EOF\n";
}
