#pragma once

#include "apps/common/event/eventpoll.h"
#include "apps/common/files/descriptor.h"

/// The listening socket of a FastCGI process, on which the web server connects. It stays usable when the
/// process runs out of descriptors.
class Listener {
public:
    /// Listens on all IPv4 interfaces and registers the socket with `poll` for `owner`, which calls accept
    /// when it is readable. Both must outlive the object. `backlog` connections wait until they are accepted.
    /// Throws through throwErrorNumber with "socket", "bind".
    Listener(int port, EventPoll& poll, EventPoll::Callback* owner, int backlog);

    /// Registers descriptor 0, an inherited listening socket, which stays open.
    Listener(EventPoll& poll, EventPoll::Callback* owner);

    /// Stops listening.
    ~Listener();
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;

    /// Accepts one connection and returns it, close-on-exec; or nothing, which is no error, if the client has
    /// disconnected. When the process has no descriptor left, a reserved one is released so that the
    /// connection can be accepted and closed, with a Warn line; if that fails, the listener pauses until
    /// endPause. Throws through throwErrorNumber with "accept" when the listening socket itself fails.
    Descriptor accept();

    /// Listens again after a pause when a descriptor can be reserved; otherwise does nothing.
    void endPause();

    /// Accepts no more: new connections stay in the socket's queue, which an inherited socket keeps.
    void stop();

    /// Whether `fd` is a listening socket, as systemd passes it.
    static bool isListening(int fd);

private:
    int fd() const;
    void pause();
    void leave();
    void acceptFailed();
    void rejectConnection();

    Descriptor socket_; // none when the listening socket is inherited
    EventPoll& poll_;
    EventPoll::Callback* owner_;
    Descriptor reserved_; // released by rejectConnection
    bool isPaused_ = false;
    bool isStopped_ = false;
};
