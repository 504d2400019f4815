#pragma once

#include "apps/common/event/eventpoll.h"
#include "apps/common/event/serverconnection.h"

/// The start-up of a process that works on the device's memories. Owns the process-wide objects: before main
/// it opens the standard descriptors if they are closed, and constructs the eighteen segments (unopened) and
/// then the event loop; at exit these are destroyed in reverse order.
namespace gen {

/// Opens all memories in table order and stores their addresses in the base pointers, connects to the message
/// broker (gServerConnection), subscribes to all events and lets gComponentLogLevel point to the first word
/// of MemApp. Throws what SharedMemory::open, SharedMemory::address and ServerConnection throw.
void init();

/// Opens all memories in table order and stores their addresses in the base pointers. init does this, too.
/// Throws what SharedMemory::open and SharedMemory::address throw.
void openMemories();

/// The process's only event loop.
EventPoll& getEventPoll();

/// The process's connection to the broker; null before init and after closeServerConnection.
ServerConnection* getServerConnection();

/// Subscribes to all events again. REQUIRES: a connection.
void subscribeNotifications();

/// Destroys the connection. Does nothing without one.
void closeServerConnection();

} // namespace gen

/// Hooks, which the process defines: init calls them before it opens the memories and after it has
/// subscribed.
void processPreInit();
void processPostInit();
