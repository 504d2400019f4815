#pragma once

#include <cstddef>

class Request;

/// What a request needs of the listener that accepted it.
class RequestRegistry {
public:
    virtual ~RequestRegistry() = default;

    /// Registers a request whose input is complete, and dispatches it.
    virtual void addRequest(Request* request) = 0;

    /// Takes a finished request out of the event loop and marks it for deletion.
    virtual void removeRequest(Request* request) = 0;

    /// False when each connection is closed after its answer, although the web server would keep it.
    virtual bool keepsConnections() const = 0;

    /// Asks for the memory of a body, see BodyBudget::ask. When it returns false, the listener stops reading
    /// the connection and calls Request::resume when it is the request's turn.
    virtual bool askForBody(Request* request, std::size_t size) = 0;

    /// See BodyBudget::grow and release.
    virtual bool growBody(Request* request, std::size_t size) = 0;
    virtual void releaseBody(Request* request) = 0;
};
