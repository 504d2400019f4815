#pragma once

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

/// Ids of the events that speak to the broker.
enum ControlEvent : std::uint32_t {
    EventSubscribe = 1,   ///< the record that follows names the event
    EventUnsubscribe = 2, ///< the record that follows names the event
    EventSubscribeAll = 3,
    EventUnsubscribeAll = 4,
};

/// The event's name. An id beyond the table is logged at Warn, and its name is "Invalid".
const char* eventName(const Notify& event);
