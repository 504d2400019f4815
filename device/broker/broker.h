#pragma once

#include "device/broker/client.h"

#include <list>
#include <string>

/// The message broker: takes the device's events from any process that connects, and hands each, unchanged,
/// to every client that has subscribed to it, the sender included. Ids have no meaning here beyond the
/// control records (apps/common/event/notify.h), so that an event which this version does not name still
/// arrives.
///
/// Nothing a client does holds up the others: no call blocks but the wait of runOnce(), and a client that
/// stops reading is dropped when Client::QUEUE_LIMIT records wait for it.
class Broker {
public:
    /// Listens on the Unix socket `path`, taking the place of one that a former broker has left. Throws
    /// std::runtime_error with "socket", "bind" or "listen" and the reason.
    explicit Broker(const std::string& path);
    /// Closes all connections and removes the socket.
    ~Broker();
    Broker(const Broker&) = delete;
    Broker& operator=(const Broker&) = delete;

    /// Waits at most `timeoutMs` (-1: without limit) and handles what came: one piece from each client that
    /// sent something, all new connections. Returns false when `stopDescriptor` has become readable; -1 is
    /// none. Throws std::runtime_error with "poll" and the reason.
    bool runOnce(int timeoutMs, int stopDescriptor = -1);

    std::size_t clientCount() const { return connections_.size(); }

private:
    struct Connection {
        explicit Connection(int fd) : client(fd) {}

        Client client;
        bool isGone = false;
    };

    void serve(Connection& connection, short events);
    void route(const Notify& event);
    void flushAll();
    void acceptAll();

    std::string path_;
    int fd_;
    bool isAcceptPaused_ = false; ///< no descriptor is free: new connections wait in the socket's queue
    std::list<Connection> connections_;
};
