#pragma once

#include "apps/common/event/eventpoll.h"
#include "apps/common/event/notify.h"

/// The client side of the message broker, through which the device's processes tell each other what has
/// changed: a Unix stream socket that carries events as records of 12 bytes (notify.h), both ways.
///
/// A connection that is lost is closed and stays closed: no more events are received, and posting fails.
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
    /// connects and gives the semaphore back, also when connecting fails. `poll` must outlive the object.
    /// Throws through throwErrorNumber with "sem_open" (the broker has not created it after 20 attempts in
    /// quick succession), "sem_wait", "sem_post" and what connect throws. A signal while waiting is a
    /// failure: a process that is told to terminate does not wait for its turn.
    explicit ServerConnection(EventPoll& poll);

    /// Takes over `fd`, a stream socket that is connected to a broker. Throws through throwErrorNumber with
    /// "epoll_ctl"; the descriptor stays the caller's then.
    ServerConnection(EventPoll& poll, int fd);

    ~ServerConnection() override;
    ServerConnection(const ServerConnection&) = delete;
    ServerConnection& operator=(const ServerConnection&) = delete;

    /// Connects to the broker's socket and registers with the poll; an open connection is closed first.
    /// Throws through throwErrorNumber with "socket", "epoll_ctl", "connect"; the connection is closed then.
    void connect();

    /// Half-closes the socket, reads what the broker was still sending until it closes or pauses for 100 ms,
    /// and closes it. Ends after 1 MiB or one second even if the broker never stops. Does nothing when
    /// closed.
    void close();

    /// Readable: receives up to 256 records and dispatches them; a record that ends in the middle is dropped.
    /// End of stream, a read error and hang-up close the connection. Urgent data is ignored.
    void event(EventType type) override;

    /// Sends one event. Throws through throwError with "Could not send message to server".
    void postEvent(const Notify& event);

    /// Asks for events with this id. Sends a control record and the event as one message:
    ///
    ///     0                        12                       24
    ///     +------------------------+------------------------+
    ///     | EventSubscribe, 0, 0  | event                  |
    ///     +------------------------+------------------------+
    ///
    /// Throws as postEvent.
    void subscribe(const Notify& event);

    /// Asks for all events. Throws as postEvent.
    void subscribeAll();

    /// Receives the events; without one each gets a Warn line. Not owned.
    EventHandler* handler = nullptr;

private:
    void receive();
    void dispatch(const Notify& event);
    void send(const void* message, unsigned int size);
    void unregister();
    void drain();
    bool atEndOfStream() const;

    EventPoll& poll_;
    int fd_ = -1;
};

/// The process's connection, null while there is none. Owned by who created it.
extern ServerConnection* gServerConnection;

/// Reads records from `fd` into `buffer`, which has room for `max`, with one read. Returns the number of
/// whole records; the bytes of a last, partial one are dropped. Throws through throwError with "Read error".
int readEvents(int fd, Notify* buffer, int max);

/// Posts through the process's connection. Throws through throwError with "Trying to post event without
/// server connection", and as ServerConnection::postEvent.
void postEvent(const Notify& event);
