#include "apps/common/event/unhandledevents.h"

#include "apps/common/diagnostics/diagnostics.h"

void UnhandledEvents::handleEvent(const Notify& event) {
    LOG_MESSAGE(Warn, "Unhandled event: %s", eventName(event).c_str());
}
