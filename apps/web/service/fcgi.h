#pragma once

#include "apps/common/event/eventpoll.h"
#include "apps/common/fastcgi/listener.h"
#include "apps/common/files/descriptor.h"
#include "apps/web/service/fastcgi/bodybudget.h"
#include "apps/web/service/fastcgi/parkedconnections.h"
#include "apps/web/service/fastcgi/requestregistry.h"

#include <map>
#include <memory>
#include <optional>
#include <vector>

class Request;

/// The FastCGI server's listener: accepts the web server's connections, keeps a registry of the requests
/// whose input is complete, dispatches each of them to one callback, and deletes finished requests later,
/// outside of their own event callbacks.
///
///     accepted --STDIN ends--> registered, dispatched --end or hang-up--> marked --cleanup--> deleted
///
/// A request that hangs up before its input is complete was never registered: its descriptor is closed, and
/// the object is deleted with the next accepted connection.
class Fcgi : public EventPoll::Callback, public RequestRegistry {
public:
    class RequestCallback {
    public:
        virtual ~RequestCallback() = default;
        /// Called once per request, when its input is complete. An exception ends that request.
        virtual void handleRequest(Request* request) = 0;
    };

    /// At most this many requests may be unfinished. Further connections are accepted but not read, and
    /// closed when the client disconnects.
    static constexpr std::size_t MAX_REQUESTS = 32;

    /// Listens on all IPv4 interfaces and registers with `poll`, which must outlive the object.
    /// Throws through throwErrorNumber with "socket", "bind".
    Fcgi(int port, EventPoll& poll);

    /// Registers descriptor 0, an inherited listening socket, which stays open.
    explicit Fcgi(EventPoll& poll);

    /// Stops listening and ends every request that is registered and not finished, in ascending id order.
    /// Deletes the requests that the listener accepted.
    ~Fcgi() override;
    Fcgi(const Fcgi&) = delete;
    Fcgi& operator=(const Fcgi&) = delete;

    /// Accepts one connection, see Listener::accept; a cleanup ends the listener's pause. An exception closes
    /// the accepted connection and is logged at Error. Throws as Listener::accept.
    void event(EventType type) override;

    /// The registered request with this id, or null. For callers that keep an id across turns of the loop.
    Request* request(unsigned int id) const;

    /// The registered requests by id. The pointers are valid until the next cleanup.
    const std::map<unsigned int, Request*>& requests() const { return registry_; }

    /// Registers a request whose input is complete, takes ownership of it and dispatches it to the callback.
    void addRequest(Request* request) override;

    /// Takes a finished request out of the event loop and marks it for deletion.
    void removeRequest(Request* request) override;

    /// Ends the service's listening before it stops: new connections stay in the listening socket's queue,
    /// and each accepted one is closed after its answer, an idle one at once. Requests that wait for a change
    /// or for log text go on waiting.
    void stopAccepting();

    /// Whether an accepted connection still has to send or to get something. Waiting requests do not count.
    bool isBusy() const;

    bool keepsConnections() const override { return !isStopping_; }

    /// Deletes the marked requests. A marked id that is not registered gets a Warn line; of several clients
    /// that disconnected early, only the first. Also closes connections whose bodies have stalled, grants
    /// memory to waiting bodies, and ends the listener's pause.
    void cleanup() { cleanupAt(BodyBudget::Clock::now()); }
    void cleanupAt(BodyBudget::Clock::time_point now);

    bool askForBody(Request* request, std::size_t size) override;
    bool growBody(Request* request, std::size_t size) override;
    void releaseBody(Request* request) override { bodies_.release(request); }

    /// Receives the completed requests; with null they are not dispatched. Not owned.
    RequestCallback* callback = nullptr;

private:
    bool isFull();
    void serve(Descriptor connection);
    void take(Descriptor connection);
    void deleteMarked();
    void destroy(Request* request);
    void dropStalled(BodyBudget::Clock::time_point now);
    void watch(Request* request, unsigned int events);

    std::optional<Listener> listener_; // until the destructor
    unsigned int nextId_ = 0;
    std::map<unsigned int, Request*> registry_;
    std::vector<unsigned int> marked_;
    std::vector<const Request*> abandoned_; // have hung up before their input was complete
    EventPoll& poll_;
    BodyBudget bodies_;
    std::map<const Request*, std::unique_ptr<Request>> accepted_; // by this listener, registered or not
    ParkedConnections parked_;
    bool isStopping_ = false;
    bool isAbandonedMarked_ = false; // since the last cleanup
};
