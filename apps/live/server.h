#pragma once

#include "apps/common/event/serverconnection.h"
#include "apps/common/fastcgi/listener.h"
#include "apps/live/api.h"
#include "apps/live/changes.h"
#include "apps/live/connection.h"
#include "apps/live/presentvalues.h"
#include "apps/live/streams.h"

#include <map>
#include <memory>
#include <optional>
#include <vector>

/// The process without its start: accepts the web server's connections, passes requests to the API and
/// changes to the streams.
class Server : public EventPoll::Callback, public Connection::Owner, public ServerConnection::EventHandler {
public:
    using Clock = Streams::Clock;

    /// Further connections are closed at once. Streams leave some room for other requests.
    static constexpr std::size_t MAX_CONNECTIONS = Streams::MAX_STREAMS + 64;

    /// The bodies of all requests together. A request whose body does not fit gets status 503.
    static constexpr std::size_t MAX_BODIES = std::size_t{8} << 20;

    /// Listens on `port`, or on the inherited descriptor 0 without one. Throws as Listener's constructor.
    Server(EventPoll& poll, std::optional<int> port);

    /// To be called after every turn of the event loop.
    void turn(Clock::time_point now);

    /// The time that the loop may wait for events: until the next message is due, at most a second.
    int waitMs(Clock::time_point now) const;

    /// Accepts no more connections and closes the idle ones and the streams, whose clients connect again.
    void stop();

    /// Whether answers have not left yet.
    bool isBusy() const { return !connections_.empty(); }

    void event(EventType type) override;
    void handleEvent(const Notify& notify) override;
    void handle(Connection& connection, const HttpRequest& request) override;
    void refuse(Connection& connection, int status) override { api_.refuse(connection, status); }
    void ready(Connection& connection) override;
    void closed(Connection& connection) override;
    bool accountBody(std::ptrdiff_t bytes) override;

private:
    void deleteClosed();

    EventPoll& poll_;
    Counters counters_;
    PresentValues values_;
    Changes changes_;
    Streams streams_{values_, changes_, counters_};
    Api api_{values_, changes_, streams_, counters_};
    std::size_t bodies_ = 0;
    std::map<Connection*, std::unique_ptr<Connection>> connections_;
    std::vector<Connection*> closed_; // to be deleted after this turn of the loop
    bool isStopping_ = false;
    std::optional<Listener> listener_;
};
