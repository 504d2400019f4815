#include "apps/live/server.h"

#include "apps/common/diagnostics/diagnostics.h"

#include <algorithm>
#include <cstdint>
#include <exception>
#include <sys/random.h>
#include <utility>

namespace {

constexpr int BACKLOG = 1024; // as the socket unit's
constexpr std::chrono::milliseconds LONGEST_WAIT{1000};
constexpr std::int64_t YEAR_2020 = 1577836800000;

// The wall clock, or a random time if it is not set: a board whose clock has no battery starts each time at
// almost the same one, and would take another start's numbers for its own.
std::int64_t millisecondsAtStart() {
    const std::int64_t now = std::chrono::duration_cast<std::chrono::milliseconds>(
                                 std::chrono::system_clock::now().time_since_epoch())
                                 .count();
    std::uint64_t random = 0;
    if (now >= YEAR_2020 || getrandom(&random, sizeof random, GRND_NONBLOCK) != sizeof random)
        return now;
    return static_cast<std::int64_t>(random % YEAR_2020);
}

} // namespace

Server::Server(EventPoll& poll, std::optional<int> port)
    : poll_(poll), changes_(values_.all(), millisecondsAtStart()) {
    if (port)
        listener_.emplace(*port, poll_, this, BACKLOG);
    else
        listener_.emplace(poll_, this);
}

void Server::event(EventType type) {
    if (type != Readable)
        return;
    Descriptor socket = listener_->accept();
    if (!socket.isOpen())
        return;
    if (connections_.size() >= MAX_CONNECTIONS) {
        ++counters_.connections;
        return;
    }
    try {
        auto connection = std::make_unique<Connection>(poll_, std::move(socket), *this);
        connections_.emplace(connection.get(), std::move(connection));
    } catch (const std::exception& exception) {
        LOG_MESSAGE(Error, "Connection closed: %s", exception.what());
    }
}

void Server::handleEvent(const Notify& notify) {
    if (!isKnownEvent(notify))
        return;
    ++counters_.events;
    if (changes_.receive(notify.id))
        streams_.changed(notify.id);
}

void Server::handle(Connection& connection, const HttpRequest& request) {
    api_.handle(connection, request);
    if (isStopping_ && connection.isStream())
        connection.close();
}

void Server::ready(Connection& connection) {
    if (connection.isStream())
        streams_.askForTurn();
    else if (isStopping_)
        connection.close();
}

void Server::closed(Connection& connection) {
    closed_.push_back(&connection);
}

bool Server::accountBody(std::ptrdiff_t bytes) {
    const std::size_t sum = bodies_ + static_cast<std::size_t>(bytes);
    if (bytes > 0 && sum > MAX_BODIES)
        return false;
    bodies_ = sum;
    return true;
}

void Server::turn(Clock::time_point now) {
    deleteClosed();
    streams_.turn(now);
    deleteClosed();
    if (!isStopping_)
        listener_->endPause();
}

void Server::deleteClosed() {
    for (Connection* const connection : std::exchange(closed_, {})) {
        streams_.remove(*connection);
        connections_.erase(connection);
    }
}

int Server::waitMs(Clock::time_point now) const {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(
        std::clamp<Clock::duration>(streams_.due() - now, Clock::duration::zero(), LONGEST_WAIT));
    return static_cast<int>(left.count());
}

void Server::stop() {
    isStopping_ = true;
    listener_->stop();
    for (const auto& [key, connection] : connections_)
        if (connection->isStream() || connection->isIdle())
            connection->close();
    deleteClosed();
}
