#include "apps/common/event/notify.h"

#include "apps/common/diagnostics/diagnostics.h"

#include <cerrno>
#include <unistd.h>

bool isKnownEvent(const Notify& event) {
    if (event.id < EVENT_COUNT)
        return true;
    LOG_MESSAGE(Warn, "Event id %u is beyond the %u known events", event.id, EVENT_COUNT);
    return false;
}

CatalogueText eventName(Notify event) {
    return isKnownEvent(event) ? EVENT_NAME[event.id] : "Invalid";
}

void logUnhandledEvent(const Notify& event) {
    LOG_MESSAGE(Warn, "Unhandled event: %s", eventName(event).c_str());
}

int readEvents(int fd, Notify* buffer, int max) {
    ssize_t bytes;
    do {
        bytes = read(fd, buffer, sizeof(Notify) * static_cast<std::size_t>(max));
    } while (bytes < 0 && errno == EINTR);
    if (bytes < 0)
        throwError(__FILE__, __LINE__, "Read error");
    return static_cast<int>(static_cast<std::size_t>(bytes) / sizeof(Notify));
}
