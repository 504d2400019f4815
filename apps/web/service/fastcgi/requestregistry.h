#pragma once

class Request;

/// What a request needs of the listener that accepted it.
class RequestRegistry {
public:
    virtual ~RequestRegistry() = default;

    /// Registers a request whose input is complete, and dispatches it.
    virtual void addRequest(Request* request) = 0;

    /// Takes a finished request out of the event loop and marks it for deletion.
    virtual void removeRequest(Request* request) = 0;
};
