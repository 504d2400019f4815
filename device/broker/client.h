#pragma once

#include "apps/common/event/notify.h"
#include "apps/common/files/descriptor.h"
#include "device/broker/subscriptions.h"

#include <cstddef>
#include <functional>
#include <utility>
#include <vector>

/// One connection of the broker: joins the pieces in which the client's records arrive, handles the control
/// records, and queues the records that the client has not read yet.
class Client {
public:
    /// Largest number of records that wait for a client, in addition to those in its socket.
    static constexpr std::size_t QUEUE_LIMIT = 65536;

    /// REQUIRES: a non-blocking socket.
    explicit Client(Descriptor socket) : socket_(std::move(socket)) {}

    int descriptor() const { return socket_.get(); }

    /// Reads once and handles the control records at the beginning of what it has read. Returns false if the
    /// client has disconnected; an incomplete record is dropped.
    bool receive();

    /// Passes each complete record that is not a control record to `route`, in order.
    void routeAll(const std::function<void(const Notify&)>& route);

    /// Queues an event if the client has subscribed to it. Returns false if the queue is full: the client
    /// does not read and should be dropped.
    bool offer(const Notify& event);

    /// Sends as much of the queue as the socket takes. Returns false if the client has disconnected.
    bool flush();

    bool hasQueue() const { return sent_ < queue_.size(); }

private:
    void takeWhile(const std::function<bool(const Notify&)>& handle);
    bool handleControl(const Notify& record);
    bool isQueueFull() const;

    Descriptor socket_;
    Subscriptions subscriptions_;
    std::uint32_t pendingControl_ = 0; ///< the control record that waits for its second record, or 0
    std::vector<unsigned char> input_; ///< between routeAll and receive the beginning of a record
    std::vector<unsigned char> queue_; ///< records to send
    std::size_t sent_ = 0;             ///< bytes of queue_ that are sent
};
