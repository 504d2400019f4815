#pragma once

#include "apps/common/event/eventpoll.h"
#include "apps/common/files/descriptor.h"
#include "apps/web/service/fastcgi/parkedconnections.h"

#include <map>
#include <memory>
#include <vector>

class Request;

/// The FastCGI server's front: accepts the web server's connections, keeps a registry of the requests whose
/// input is complete, hands each of them to one callback, and deletes finished requests later, at a safe
/// point.
///
///     accepted --STDIN ends--> registered, handed over --end or hang-up--> marked --cleanup--> deleted
///
/// A request that hangs up before its input is complete was never registered: its descriptor is closed, the
/// object stays until the listener goes.
class Fcgi : public EventPoll::Callback {
public:
    class RequestCallback {
    public:
        virtual ~RequestCallback() = default;
        /// Called once per request, when its input is complete. An exception ends that request.
        virtual void handleRequest(Request* request) = 0;
    };

    /// Unfinished requests in the registry at most. A connection beyond is accepted and left alone.
    static constexpr std::size_t MAX_REQUESTS = 32;

    /// Listens on all IPv4 interfaces and registers with `poll`, which must outlive the object.
    /// Throws through throwErrorNumber with "socket", "bind".
    Fcgi(int port, EventPoll& poll);

    /// Registers descriptor 0 as an inherited listening socket, which stays open.
    explicit Fcgi(EventPoll& poll);

    /// Stops listening, ends every request that is registered and not finished, in ascending id order, and
    /// deletes all.
    ~Fcgi() override;
    Fcgi(const Fcgi&) = delete;
    Fcgi& operator=(const Fcgi&) = delete;

    /// Accepts one connection. A client that is gone again is no error, and when the process is out of
    /// descriptors the connection is closed at once with a Warn line. Throws through throwErrorNumber with
    /// "accept" when the listening socket itself fails.
    void event(EventType type) override;

    /// The registered request with this id, null if there is none. For callers that keep an id across turns.
    Request* request(unsigned int id) const;

    /// The registered requests by id. The pointers hold until the next cleanup.
    const std::map<unsigned int, Request*>& requests() const { return registry_; }

    /// Registers a request whose input is complete and hands it to the callback.
    void addRequest(Request* request);

    /// Takes a finished request out of the event loop and marks it for deletion.
    void removeRequest(Request* request);

    /// Deletes the marked requests. A marked id that is not registered gets a Warn line.
    void cleanup();

    /// Receives the completed requests; null drops them. Not owned.
    RequestCallback* callback = nullptr;

private:
    bool isFull();
    void serve(int fd);
    void acceptFailed();
    void rejectConnection();

    int listening() const;

    Descriptor socket_; // none when the listening socket is inherited
    unsigned int nextId_ = 0;
    std::map<unsigned int, Request*> registry_;
    std::vector<unsigned int> marked_;
    EventPoll& poll_;
    std::map<unsigned int, std::unique_ptr<Request>> accepted_; // owns all, registered or not
    ParkedConnections parked_;
    Descriptor spare_; // held free for rejectConnection
};
