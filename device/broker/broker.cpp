#include "device/broker/broker.h"

#include "apps/common/diagnostics/diagnostics.h"

#include <cerrno>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr int BACKLOG = 128;
constexpr int ACCEPT_PAUSE_MS = 100;
// The index in the poll list, after the stop descriptor and the listening socket.
constexpr std::size_t FIRST_CLIENT = 2;

sockaddr_un addressOf(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path)
        throwError(__FILE__, __LINE__, "Socket path is too long: %s", path.c_str());
    std::memcpy(address.sun_path, path.c_str(), path.size());
    return address;
}

bool isOutOfDescriptors(int error) {
    return error == EMFILE || error == ENFILE || error == ENOBUFS || error == ENOMEM;
}

} // namespace

Broker::Broker(const std::string& path) : path_(path) {
    const sockaddr_un address = addressOf(path);
    socket_ = Descriptor(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!socket_.isOpen())
        throwErrorNumber(__FILE__, __LINE__, "socket");
    unlink(path.c_str());
    if (bind(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        throwErrorNumber(__FILE__, __LINE__, "bind");
    if (listen(socket_.get(), BACKLOG) != 0)
        throwErrorNumber(__FILE__, __LINE__, "listen");
}

Broker::~Broker() {
    unlink(path_.c_str());
}

bool Broker::runOnce(int timeoutMs, int stopDescriptor) {
    const short listening = isAcceptPaused_ ? 0 : POLLIN;
    std::vector<pollfd> polls{{stopDescriptor, POLLIN, 0}, {socket_.get(), listening, 0}};
    for (const Connection& connection : connections_) {
        const short wanted = connection.client.hasQueue() ? POLLIN | POLLOUT : POLLIN;
        polls.push_back({connection.client.descriptor(), wanted, 0});
    }
    const bool waitsLonger = timeoutMs < 0 || timeoutMs > ACCEPT_PAUSE_MS;
    if (poll(polls.data(), polls.size(), isAcceptPaused_ && waitsLonger ? ACCEPT_PAUSE_MS : timeoutMs) < 0) {
        if (errno != EINTR)
            throwErrorNumber(__FILE__, __LINE__, "poll");
        return true;
    }
    if (isAcceptPaused_ || polls[1].revents != 0)
        acceptAll();
    polls.resize(FIRST_CLIENT + connections_.size(), {-1, 0, POLLIN});
    receiveAll(polls.data() + FIRST_CLIENT);
    for (Connection& connection : connections_)
        connection.client.routeAll([this](const Notify& event) { route(event); });
    flushAll();
    connections_.remove_if([](const Connection& connection) { return connection.isGone; });
    return polls[0].revents == 0;
}

// After a hang-up the socket may still hold records.
void Broker::receiveAll(const pollfd* events) {
    for (Connection& connection : connections_)
        if (((events++)->revents & (POLLIN | POLLHUP | POLLERR)) != 0 && !connection.client.receive())
            connection.isGone = true;
}

void Broker::route(const Notify& event) {
    for (Connection& connection : connections_) {
        if (!connection.isGone && !connection.client.offer(event)) {
            LOG_MESSAGE(Warn, "Client %i does not read, dropped with %zu events waiting",
                        connection.client.descriptor(), Client::QUEUE_LIMIT);
            connection.isGone = true;
        }
    }
}

void Broker::flushAll() {
    for (Connection& connection : connections_)
        if (!connection.isGone && !connection.client.flush())
            connection.isGone = true;
}

void Broker::acceptAll() {
    isAcceptPaused_ = false;
    for (;;) {
        Descriptor client(accept4(socket_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
        if (client.isOpen()) {
            connections_.emplace_back(std::move(client));
        } else if (isOutOfDescriptors(errno)) {
            isAcceptPaused_ = true;
            return;
        } else if (errno != EINTR && errno != ECONNABORTED) {
            return; // EAGAIN: all are accepted
        }
    }
}
