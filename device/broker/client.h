#pragma once

#include "apps/common/event/notify.h"
#include "device/broker/subscriptions.h"

#include <cstddef>
#include <functional>
#include <vector>

/// One connection of the broker: puts the client's records together from the pieces in which they arrive,
/// acts on the control records among them, and keeps what the client has not yet taken. Owns its descriptor,
/// which must be non-blocking.
class Client {
public:
    /// Records that wait for a client that does not read, beyond what its socket holds.
    static constexpr std::size_t QUEUE_LIMIT = 4096;

    explicit Client(int fd);
    ~Client();
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    int descriptor() const { return fd_; }

    /// Reads once what is there and hands each complete event that is no control record to `route`, in order.
    /// Returns false when the client is gone; what it left of a record is dropped.
    bool receive(const std::function<void(const Notify&)>& route);

    /// Takes an event for the client if it has subscribed to it. Returns false when the queue is full: the
    /// client does not read and should be dropped.
    bool offer(const Notify& event);

    /// Sends as much of the queue as the socket takes. Returns false when the client is gone.
    bool flush();

    bool hasQueue() const { return sent_ < queue_.size(); }

private:
    void handle(const Notify& record, const std::function<void(const Notify&)>& route);
    bool handleControl(const Notify& record);
    bool isQueueFull() const;

    int fd_;
    Subscriptions subscriptions_;
    std::uint32_t pendingControl_ =
        0; ///< EventSubscribe or EventUnsubscribe until its second record is there
    std::vector<unsigned char> input_; ///< the beginning of a record
    std::vector<unsigned char> queue_; ///< records to send
    std::size_t sent_ = 0;             ///< bytes of queue_ that are sent
};
