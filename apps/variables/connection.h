#pragma once

#include "apps/common/event/brokersocket.h"
#include "gen/code/gen.h"

/// The connection to the message broker while a command needs it. Throws what connectApart throws.
class Connection {
public:
    Connection() : connection_(gen::getEventPoll(), connectApart(std::chrono::seconds(5)).release()) {
        gServerConnection = &connection_;
    }
    ~Connection() { gServerConnection = nullptr; }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    ServerConnection* operator->() { return &connection_; }

private:
    ServerConnection connection_;
};
