#include "apps/live/metrics.h"

#include "apps/common/event/serverconnection.h"
#include "apps/common/introspection/catalogue.h"
#include "apps/live/output.h"

#include <algorithm>
#include <fstream>
#include <unistd.h>

namespace {

// Of a counter, only the older format has the suffix in the description too.
class Text {
public:
    explicit Text(MetricsFormat format) : format_(format) {}

    void counter(const std::string& name, const char* help, std::uint64_t value) {
        append(format_ == MetricsFormat::Plain ? name + "_total" : name, "counter", help, name + "_total",
               value);
    }
    void gauge(const std::string& name, const char* help, std::uint64_t value) {
        append(name, "gauge", help, name, value);
    }
    std::string end() { return text_ + (format_ == MetricsFormat::Plain ? "" : "# EOF\n"); }

private:
    void append(const std::string& family, const char* kind, const char* help, const std::string& sample,
                std::uint64_t value) {
        text_ += "# TYPE " + family + " " + kind + "\n# HELP " + family + " " + help + "\n" + sample + " " +
                 std::to_string(value) + "\n";
    }

    const MetricsFormat format_;
    std::string text_;
};

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

MetricsFormat metricsFormat(std::string_view accept) {
    const auto names = [accept](const char* type) { return accept.find(type) != std::string_view::npos; };
    return names("text/plain") && !names("application/openmetrics-text") ? MetricsFormat::Plain
                                                                         : MetricsFormat::OpenMetrics;
}

const char* mediaType(MetricsFormat format) {
    return format == MetricsFormat::Plain ? "text/plain; version=0.0.4; charset=utf-8"
                                          : "application/openmetrics-text; version=1.0.0; charset=utf-8";
}

std::string metricsText(MetricsFormat format, const Counters& counters, std::size_t streams) {
    Text text(format);
    text.counter("live_requests", "Requests.", counters.requests);
    text.counter("live_requests_refused", "Requests answered with a status of 400 or more.",
                 counters.refused);
    text.counter("live_connections_refused", "Connections closed because of the limit.",
                 counters.connections);
    text.gauge("live_clients", "Clients that get events.", streams);
    text.counter("live_events", "Events received from the message broker.", counters.events);
    text.counter("live_values_stored", "Values stored for clients.", counters.stored);
    text.counter("live_messages_printed", "Messages, each printed once for all clients that need it.",
                 counters.printed);
    text.counter("live_messages_sent", "Messages sent to clients.", counters.messages);
    text.counter("live_heartbeats", "Heartbeats sent to clients.", counters.heartbeats);
    text.counter("live_changes_overwritten",
                 "Changes that a slow client did not get because a later one replaced them.", counters.late);
    text.counter("live_clients_disconnected",
                 "Slow clients disconnected because their output held too much memory.",
                 counters.disconnected);
    text.gauge("live_output_bytes", "Bytes that clients have not taken yet.", Output::held());
    text.gauge("live_resident_memory_bytes", "Resident memory.", residentBytes());
    text.gauge("live_broker_connected", "1 while the message broker is connected.", hasBroker() ? 1 : 0);
    text.gauge("live_segments_mapped", "Shared-memory segments that are mapped.", mappedMemories());
    return text.end();
}
