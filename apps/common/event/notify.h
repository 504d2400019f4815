#pragma once

#include "apps/common/event/cataloguetext.h"
#include "apps/common/event/events_gen.h"

#include <cstdint>

/// An event as the device's processes exchange it through the message broker. It is also the wire record:
/// three 32-bit words in the machine's byte order (little-endian on the device), without gaps.
///
///     0         4         8         12
///     +---------+---------+---------+
///     |   id    |  arg1   |  arg2   |
///     +---------+---------+---------+
///
/// The argument words travel unchanged. For a variable's event arg1 selects the element: 0 the variable
/// itself, 1 the element whose index is in arg2.
struct Notify {
    std::uint32_t id;
    std::uint32_t arg1;
    std::uint32_t arg2;
};
static_assert(sizeof(Notify) == 12);

/// Ids of the events that control the broker.
enum ControlEvent : std::uint32_t {
    EventSubscribe = 1,   ///< the record that follows names the event
    EventUnsubscribe = 2, ///< the record that follows names the event
    EventSubscribeAll = 3,
    EventUnsubscribeAll = 4,
};

/// Whether the event's id has a name. Logs at Warn "Event id <id> is beyond the <count> known events" if not.
bool isKnownEvent(const Notify& event);

/// The event's name; "Invalid" for an id without a name, which is logged as by isKnownEvent.
CatalogueText eventName(Notify event);

/// Logs at Warn "Unhandled event: <name>".
void logUnhandledEvent(const Notify& event);

/// Reads records from `fd` into `buffer`, which has room for `max`, with one read. Returns the number of
/// whole records and drops the bytes of a last, partial one. Throws through throwError with "Read error".
int readEvents(int fd, Notify* buffer, int max);

/// Posts through the process's connection, gServerConnection. Throws through throwError with "Trying to post
/// event without server connection", and as ServerConnection::postEvent.
void postEvent(Notify event);
