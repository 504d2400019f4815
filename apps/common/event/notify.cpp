#include "apps/common/event/notify.h"

#include "apps/common/diagnostics/diagnostics.h"

const char* eventName(const Notify& event) {
    if (event.id < EVENT_COUNT)
        return EVENT_NAME[event.id];
    LOG_MESSAGE(Warn, "Event id %u is beyond the %u known events", event.id, EVENT_COUNT);
    return "Invalid";
}
