#pragma once

#include "apps/common/event/serverconnection.h"

/// Logs each event at Warn with its name, until a process sets a handler of its own. A class apart, so that
/// the names of all events are only in programs that log them.
class UnhandledEvents : public ServerConnection::EventHandler {
public:
    void handleEvent(const Notify& event) override;
};
