#pragma once

#include "apps/common/files/descriptor.h"
#include "device/broker/client.h"

#include <list>
#include <poll.h>
#include <string>
#include <utility>

/// The message broker: receives the device's events from its clients and sends each, unchanged, to every
/// client that has subscribed to it, the sender included. It interprets only the control records
/// (apps/common/event/notify.h), so it also forwards events that this version does not know.
///
/// No client delays the others: only the wait of runOnce() blocks, and a client that stops reading is dropped
/// when Client::QUEUE_LIMIT records wait for it.
class Broker {
public:
    /// Listens on the Unix socket `path` and replaces the socket of a former broker. Throws
    /// std::runtime_error with "socket", "bind" or "listen" and the reason.
    explicit Broker(const std::string& path);
    /// Closes all connections and removes the socket.
    ~Broker();
    Broker(const Broker&) = delete;
    Broker& operator=(const Broker&) = delete;

    /// Waits at most `timeoutMs` (-1: without limit), accepts all new connections, and reads once from each
    /// client that has sent data. What a client subscribes to at first applies to all events that are read
    /// with it, so that it misses none that is posted later. Returns false if `stopDescriptor` has become
    /// readable; -1 is none. Throws std::runtime_error with "poll" and the reason.
    bool runOnce(int timeoutMs, int stopDescriptor = -1);

    std::size_t clientCount() const { return connections_.size(); }

private:
    struct Connection {
        explicit Connection(Descriptor socket) : client(std::move(socket)) {}

        Client client;
        bool isGone = false;
    };

    void receiveAll(const pollfd* events);
    void route(const Notify& event);
    void flushAll();
    void acceptAll();

    std::string path_;
    Descriptor socket_;
    bool isAcceptPaused_ = false; ///< without a free descriptor, new connections wait in the socket's queue
    std::list<Connection> connections_;
};
