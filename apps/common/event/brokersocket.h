#pragma once

#include "apps/common/files/descriptor.h"

#include <chrono>

/// Named semaphore with which the broker lets one client connect at a time.
constexpr const char* BROKER_SEMAPHORE = "/message-broker-ready";

/// Connects a Unix stream socket to the broker's "/var/volatile/message-broker.socket". Returns what
/// connect(2) returns, with errno.
int connectToBroker(int fd);

/// Whether no process listens at the broker's socket. Does not connect.
bool isBrokerMissing();

/// Returns a new connection to the broker, made by a child process in a session of its own: a process that is
/// killed while it holds the broker's semaphore would keep every other process from connecting, and so this
/// child gives it back whatever happens to its parent. Throws std::runtime_error with "The message broker
/// cannot be reached: <reason>" when connecting fails or takes longer than `patience`.
Descriptor connectApart(std::chrono::milliseconds patience);

/// Whether the broker at the other end of the connection is a virtual device's: that is bound to the path
/// above in a folder, which the kernel reports, although the virtual device's programs see the path alone.
bool isOfVirtualDevice(int fd);
