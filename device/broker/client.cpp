#include "device/broker/client.h"

#include <cerrno>
#include <cstring>
#include <sys/socket.h>

namespace {

constexpr std::size_t RECORDS_PER_READ = 256;

} // namespace

bool Client::receive() {
    const std::size_t kept = input_.size();
    input_.resize(kept + RECORDS_PER_READ * sizeof(Notify));
    const ssize_t count = recv(socket_.get(), input_.data() + kept, input_.size() - kept, 0);
    if (count <= 0) {
        input_.resize(kept);
        // After EINTR and EAGAIN the next runOnce tries again.
        return count < 0 && (errno == EINTR || errno == EAGAIN);
    }
    input_.resize(kept + static_cast<std::size_t>(count));
    takeWhile([this](const Notify& record) { return handleControl(record); });
    return true;
}

void Client::routeAll(const std::function<void(const Notify&)>& route) {
    takeWhile([&](const Notify& record) {
        if (!handleControl(record))
            route(record);
        return true;
    });
}

void Client::takeWhile(const std::function<bool(const Notify&)>& handle) {
    std::size_t taken = 0;
    for (Notify record; input_.size() - taken >= sizeof record; taken += sizeof record) {
        std::memcpy(&record, input_.data() + taken, sizeof record);
        if (!handle(record))
            break;
    }
    input_.erase(input_.begin(), input_.begin() + static_cast<std::ptrdiff_t>(taken));
}

bool Client::handleControl(const Notify& record) {
    if (pendingControl_ != 0) {
        pendingControl_ == EventSubscribe ? subscriptions_.subscribe(record.id)
                                          : subscriptions_.unsubscribe(record.id);
        pendingControl_ = 0;
        return true;
    }
    switch (record.id) {
    case EventSubscribe:
    case EventUnsubscribe:
        pendingControl_ = record.id;
        return true;
    case EventSubscribeAll:
        subscriptions_.subscribeAll();
        return true;
    case EventUnsubscribeAll:
        subscriptions_.unsubscribeAll();
        return true;
    default:
        return false;
    }
}

bool Client::offer(const Notify& event) {
    if (!subscriptions_.wants(event.id))
        return true;
    if (isQueueFull() && (!flush() || isQueueFull()))
        return false;
    const auto* const bytes = reinterpret_cast<const unsigned char*>(&event);
    queue_.insert(queue_.end(), bytes, bytes + sizeof event);
    return true;
}

bool Client::flush() {
    while (hasQueue()) {
        const ssize_t count = send(socket_.get(), queue_.data() + sent_, queue_.size() - sent_, MSG_NOSIGNAL);
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            return errno == EAGAIN;
        sent_ += static_cast<std::size_t>(count);
        if (!hasQueue() || sent_ >= QUEUE_LIMIT * sizeof(Notify)) {
            queue_.erase(queue_.begin(), queue_.begin() + static_cast<std::ptrdiff_t>(sent_));
            sent_ = 0;
        }
    }
    return true;
}

bool Client::isQueueFull() const {
    return queue_.size() - sent_ > (QUEUE_LIMIT - 1) * sizeof(Notify);
}
