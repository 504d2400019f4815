#pragma once

#include "apps/common/event/eventpoll.h"
#include "apps/common/event/serverconnection.h"

/// The start-up glue of a process that works on the device's memories: it owns the process-wide objects and
/// brings them up in order. Constructed before main: the eighteen segments (unopened), then the event loop;
/// destroyed at exit in reverse order.
namespace gen {

/// Opens all memories in table order and stores their addresses in the base pointers, connects to the message
/// broker (gServerConnection), subscribes to all events, and lets gComponentLogLevel point to the first word
/// of MemApp. Throws what SharedMemory::open, SharedMemory::address and ServerConnection throw: then the
/// process cannot work.
void init();

/// The process's only event loop.
EventPoll& getEventPoll();

/// The process's connection to the broker; null before init and after closeServerConnection.
ServerConnection* getServerConnection();

/// Subscribes to all events again. REQUIRES: a connection.
void subscribeNotifications();

/// Destroys the connection. Does nothing when there is none.
void closeServerConnection();

} // namespace gen

/// Hooks of the process that is built on this glue, which defines them: called just before the memories are
/// opened, and just after the subscription is made.
void processPreInit();
void processPostInit();
