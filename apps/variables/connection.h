#pragma once

#include "apps/common/event/brokersocket.h"
#include "gen/code/gen.h"

#include <stdexcept>

/// The connection to the message broker while a command needs it. Throws what connectApart throws.
class Connection {
public:
    Connection() : Connection(connectApart(std::chrono::seconds(5))) {}
    ~Connection() { gServerConnection = nullptr; }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    ServerConnection* operator->() { return &connection_; }

    bool isVirtualDevice() const { return isVirtualDevice_; }

    /// Throws std::runtime_error if the broker has closed the connection.
    void requireOpen() const {
        if (!connection_.isOpen())
            throw std::runtime_error("The message broker has closed the connection");
    }

private:
    explicit Connection(Descriptor socket)
        : isVirtualDevice_(isOfVirtualDevice(socket.get())),
          connection_(gen::getEventPoll(), socket.release()) {
        gServerConnection = &connection_;
    }

    bool isVirtualDevice_;
    ServerConnection connection_;
};
