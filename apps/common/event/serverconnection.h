#pragma once

#include "apps/common/event/eventpoll.h"
#include "apps/common/event/notify.h"
#include "apps/common/files/descriptor.h"

#include <chrono>
#include <cstdint>

/// The client side of the message broker, which carries events between the device's processes: a Unix stream
/// socket with records of 12 bytes (notify.h) in both directions.
///
/// A connection that is lost is closed and stays closed: it receives no more events, and posting fails.
class ServerConnection : public EventPoll::Callback {
public:
    /// Receiver of the events.
    class EventHandler {
    public:
        /// Called for each record in the order of arrival. The id may be any value that another process sent.
        /// An exception is logged at Error with its text, and the next record follows.
        virtual void handleEvent(const Notify& event) = 0;
        virtual ~EventHandler() = default;
    };

    /// Waits for the broker's semaphore "/message-broker-ready", which lets one client connect at a time,
    /// connects and posts the semaphore, also when connecting fails. `poll` must outlive the object. Throws
    /// through throwErrorNumber with "sem_open" (the broker has not created it after 20 attempts in quick
    /// succession), "sem_wait", "sem_post" and what connect throws. A signal interrupts the wait and is a
    /// failure, so that SIGTERM ends it. Without a handler, each event is logged at Warn with "Unhandled
    /// event: <name>".
    explicit ServerConnection(EventPoll& poll);

    /// Takes over `fd`, a stream socket that is connected to a broker. Throws through throwErrorNumber with
    /// "epoll_ctl"; `fd` is closed then. Without a handler, events are dropped.
    ServerConnection(EventPoll& poll, int fd);

    ~ServerConnection() override;
    ServerConnection(const ServerConnection&) = delete;
    ServerConnection& operator=(const ServerConnection&) = delete;

    /// Connects to the broker's socket and registers with the poll; an open connection is closed first.
    /// Throws through throwErrorNumber with "socket", "epoll_ctl", "connect"; the connection is closed then.
    void connect();

    /// Shuts the socket down for writing, reads the rest of the broker's data until the broker closes or
    /// pauses for 100 ms, at most 1 MiB and for one second, and closes the socket. Does nothing when closed.
    void close();

    /// Readable: receives up to 256 records and dispatches them; an incomplete last record is dropped. End of
    /// file, a read error and hang-up close the connection. Urgent data is ignored.
    void event(EventType type) override;

    /// Whether the connection has not been closed or lost.
    bool isOpen() const { return socket_.isOpen(); }

    /// Sends one event. Waits for a broker that does not read, but at most sendLimit, and not at all again
    /// before the broker has read; SIGINT and SIGTERM end the wait, other signals do not. Throws through
    /// throwError with "Could not send message to server"; the event is lost then.
    void postEvent(const Notify& event);

    /// Whether the broker has read everything that was sent. An event that another process posts later comes
    /// after a subscription that the broker has read. False when closed. Uses SIOCOUTQ of linux/sockios.h.
    bool isRead() const;

    /// The number of events that postEvent has sent.
    std::uint64_t posted() const { return posted_; }

    /// Subscribes to events with this id. Sends a control record and the event as one message:
    ///
    ///     0                        12                       24
    ///     +------------------------+------------------------+
    ///     | EventSubscribe, 0, 0  | event                  |
    ///     +------------------------+------------------------+
    ///
    /// Throws as postEvent.
    void subscribe(const Notify& event);

    /// Subscribes to all events. Throws as postEvent.
    void subscribeAll();

    /// Receives the events. Does not own it.
    EventHandler* handler = nullptr;

    /// 500 ms, so that a process with clients goes on serving them.
    std::chrono::milliseconds sendLimit{500};

private:
    void receive();
    void dispatch(const Notify& event);
    void send(const void* message, unsigned int size);
    bool waitUntilWritable(std::chrono::steady_clock::time_point end) const;
    void unregister();
    void drain();
    bool atEndOfStream() const;

    EventPoll& poll_;
    Descriptor socket_;
    // Set by the first constructor only: the names of all events are only in programs that call it.
    void (*logUnhandled_)(const Notify& event) = nullptr;
    std::uint64_t posted_ = 0;
    bool isStalled_ = false; ///< the broker has not read since a send timed out
};

/// The process's connection, null while there is none. It belongs to its creator.
extern ServerConnection* gServerConnection;
